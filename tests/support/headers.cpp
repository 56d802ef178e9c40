// Compiled for the precompiled headers that all tests share, not to be run.
int main() {}
