// Runs a target without libFuzzer: on the seeds, on each file of the folder, and on some mutations of each.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "Seeds.h"
#include "Support.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed);

// Does not mutate: that is libFuzzer's part.
std::size_t LLVMFuzzerMutate(std::uint8_t* /*data*/, std::size_t size, std::size_t /*maxSize*/)
{
    return size;
}

namespace {

constexpr std::size_t kMaxSize = 4096;

void Run(const std::string& input)
{
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
}

std::map<std::string, std::string> Inputs(const std::string& folder)
{
    std::map<std::string, std::string> inputs = fuzz::Seeds();
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::ifstream file(entry.path(), std::ios::binary);
        inputs[entry.path().filename()].assign(std::istreambuf_iterator<char>(file), {});
    }
    return inputs;
}

}  // namespace

int main(int count, char** arguments)
{
    if (count != 3) {
        std::fprintf(stderr, "usage: %s FOLDER MUTATIONS\n", arguments[0]);
        return 2;
    }
    const auto mutations = static_cast<unsigned>(std::stoul(arguments[2]));
    const auto inputs = Inputs(arguments[1]);
    for (const auto& [name, input] : inputs) {
        std::fprintf(stderr, "%s\n", name.c_str());
        Run(input);
        for (unsigned seed = 1; seed <= mutations; ++seed) {
            std::string mutated = input;
            mutated.resize(kMaxSize);
            mutated.resize(LLVMFuzzerCustomMutator(reinterpret_cast<std::uint8_t*>(mutated.data()),
                                                   std::min(input.size(), kMaxSize), kMaxSize, seed));
            Run(mutated);
        }
    }
    std::printf("%zu inputs, %u mutations of each\n", inputs.size(), mutations);
    return 0;
}
