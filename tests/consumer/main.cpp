// A host of the installed library: uses every public class once, from outside the library's own build.

#include <string>

#include <Velora_UserDefaults/Velora_UserDefaults.h>

void usePlatform(const std::string& folder);
void useLogging(const std::string& folder);
void useRotationAndPreferences(const std::string& folder);

int main(int count, char** arguments) {
    const std::string folder = count > 1 ? arguments[1] : ".";
    usePlatform(folder);
    useLogging(folder);
    useRotationAndPreferences(folder);
}
