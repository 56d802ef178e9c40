// Compiled for the headers that all tests share, not to be run.
int main() {}
