// Walks a chunk file with the scanner alone, and prints the number of its records.
#include <cstdint>
#include <iostream>

#include "Corvane/File/DataChunkFileScanner.h"

int main(int count, char** arguments)
{
    if (count != 2) {
        std::cerr << "usage: walk_file FILE\n";
        return 2;
    }
    Corvane::File::DataChunkFileScanner file(arguments[1]);
    std::uint64_t records = 0;
    while (file.Next()) {
        ++records;
    }
    std::cout << records << '\n';
}
