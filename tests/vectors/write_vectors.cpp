// Writes the files of vectors/ into a folder. usage: write_vectors FOLDER
#include <exception>
#include <iostream>

#include "support/Files.h"
#include "vectors/Vectors.h"

int main(int count, char** arguments)
try {
    if (count != 2) {
        std::cerr << "usage: write_vectors FOLDER\n";
        return 2;
    }
    for (const vectors::Vector& vector : vectors::AllVectors()) {
        const std::string path = std::string(arguments[1]) + '/' + vector.name;
        support::WriteFile(path + ".chunks", vector.bytes);
        support::WriteFile(path + ".json", vectors::JsonOf(vector));
    }
} catch (const std::exception& error) {
    std::cerr << "write_vectors: " << error.what() << '\n';
    return 1;
}
