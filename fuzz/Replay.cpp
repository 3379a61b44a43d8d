// The main function of a fuzz target where it is built without a fuzzer: runs it on the files of a folder.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const char* data, std::size_t size);

int main(int, char* argv[]) {
    int status = 1;  // without a file
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::fprintf(stderr, "%s\n", entry.path().c_str());
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string input{std::istreambuf_iterator<char>(file), {}};
        status = LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    return status;
}
