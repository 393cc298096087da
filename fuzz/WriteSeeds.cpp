// Writes the seeds into a folder for libFuzzer.
#include <cstdio>
#include <fstream>

#include "Seeds.h"

int main(int count, char** arguments)
{
    if (count != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", arguments[0]);
        return 2;
    }
    for (const auto& [name, input] : fuzz::Seeds()) {
        std::ofstream file(std::string(arguments[1]) + "/" + name, std::ios::binary);
        if (!file.write(input.data(), static_cast<std::streamsize>(input.size())).flush()) {
            std::fprintf(stderr, "cannot write %s\n", name.c_str());
            return 1;
        }
    }
    return 0;
}
