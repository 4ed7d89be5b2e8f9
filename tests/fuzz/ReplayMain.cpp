// Replays fuzz inputs (files or directories of them) without libFuzzer, so CTest runs the seed corpus.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    namespace fs = std::filesystem;
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i)
    {
        if (fs::is_directory(argv[i]))
            for (const auto& entry : fs::directory_iterator(argv[i]))
                inputs.push_back(entry.path());
        else
            inputs.emplace_back(argv[i]);
    }
    std::sort(inputs.begin(), inputs.end());
    for (const auto& path : inputs)
    {
        std::ifstream in(path, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::fprintf(stderr, "replaying %s\n", path.c_str());
        LLVMFuzzerTestOneInput((const uint8_t*) bytes.data(), bytes.size());
    }
    std::fprintf(stderr, "replayed %zu inputs\n", inputs.size());
    return inputs.empty() ? 1 : 0;
}
