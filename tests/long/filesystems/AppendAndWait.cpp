#include <cstdint>
#include <exception>
#include <iostream>
#include <string>
#include <tuple>

#include "support/ChunkFileTest.h"
#include "support/Chunks.h"

// Appends a chunk with a record of BYTES bytes to FILE, prints "ready", waits for a line, and lets the appender write.
// The platform's default sink prints the library's log entries on stderr.
int main(int count, char** arguments)
{
    if (count != 3) {
        std::cerr << "usage: append_and_wait FILE BYTES\n";
        return 2;
    }
    try {
        auto file = support::NewFile(arguments[1], support::kUnbounded);
        std::ignore = file.Append(support::ChunkOfSize(1, std::stoull(arguments[2])));
        std::cout << "ready\n" << std::flush;
        std::string line;
        std::getline(std::cin, line);
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    return 0;
}
