// The main function of a fuzz target where it is built without a fuzzer: runs it on files, and on those of
// folders.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const char* data, std::size_t size);

namespace {

int Replay(const std::filesystem::path& path) {
    std::fprintf(stderr, "%s\n", path.c_str());
    std::ifstream file(path, std::ios::binary);
    file.exceptions(std::ios::failbit);  // at once where there is no such file
    const std::string input{std::istreambuf_iterator<char>(file), {}};
    return LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int count, char* argv[]) {
    int status = 1;  // without a file
    for (const std::filesystem::path path : std::span(argv, static_cast<std::size_t>(count)).subspan(1)) {
        if (!std::filesystem::is_directory(path)) {
            status = Replay(path);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(path)) {
            status = Replay(entry.path());
        }
    }
    return status;
}
