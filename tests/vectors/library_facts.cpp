// Prints a JSON array: what the library finds in each file. usage: library_facts FILE...
#include <exception>
#include <iostream>

#include "vectors/Facts.h"

int main(int count, char** arguments)
try {
    for (int i = 1; i < count; ++i) {
        std::cout << (i == 1 ? "[{\n" : "\n}, {\n") << vectors::JsonOf(vectors::FactsByLibrary(arguments[i]));
    }
    std::cout << (count == 1 ? "[]\n" : "\n}]\n");
} catch (const std::exception& error) {
    std::cerr << "library_facts: " << error.what() << '\n';
    return 1;
}
