// Stands in for libFuzzer where a compiler has none: tries the inputs given, files or folders of files, each once.

#include <cstdint>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* count, char*** arguments);

namespace {

void tryInput(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    // Before, since an input that breaks a promise ends the process.
    fmt::print(stderr, "{}\n", path.string());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int count, char** arguments) {
    if (LLVMFuzzerInitialize != nullptr) {
        LLVMFuzzerInitialize(&count, &arguments);
    }
    int inputs = 0;
    for (int index = 1; index < count; ++index) {
        const std::filesystem::path path = arguments[index];
        if (!std::filesystem::is_directory(path)) {
            tryInput(path);
            ++inputs;
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(path)) {
            tryInput(entry.path());
            ++inputs;
        }
    }
    fmt::print("{} inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
