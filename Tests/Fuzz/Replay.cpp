// Gives each file of a folder to a fuzz target, in the place of libFuzzer's own main. What is wrong
// ends the process, as it does under libFuzzer. A folder without inputs is an error: nothing would
// be tested.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::string ReadWhole(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file) {
        throw std::runtime_error("Could not read " + path.string());
    }
    return bytes;
}

void Replay(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> inputs;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        inputs.push_back(entry.path());
    }
    if (inputs.empty()) {
        throw std::runtime_error("No inputs in " + folder.string());
    }
    std::sort(inputs.begin(), inputs.end());
    for (const auto& input : inputs) {
        // Said before, so that the last line names the input that ended the process.
        std::cout << input.filename().string() << std::endl;
        const std::string bytes = ReadWhole(input);
        const std::vector<std::uint8_t> data(bytes.begin(), bytes.end());
        LLVMFuzzerTestOneInput(data.data(), data.size());
    }
    std::cout << inputs.size() << " inputs\n";
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc != 2) {
            throw std::runtime_error("usage: a fuzz target and the folder of its inputs");
        }
        Replay(argv[1]);
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    return 0;
}
