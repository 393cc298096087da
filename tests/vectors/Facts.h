#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// What is known of a chunk file, and its text in JSON (vectors/README.md describes it).
namespace vectors {

struct RecordFacts {
    std::uint64_t position;
    std::uint64_t size;
    std::int64_t time;
    std::map<std::string, std::string> fields;
};

// How a walk ends.
struct WalkFacts {
    std::uint64_t records = 0;
    std::string end;  // "all read", "bad record" or "end of file"
    std::uint64_t position = 0;
};

// What a reopening does.
struct ReopeningFacts {
    std::uint64_t maxSize;
    std::string refused;     // why, or empty
    std::uint64_t kept = 0;  // records
    std::uint64_t next = 0;  // byte position of the next append
};

struct Facts {
    std::uint64_t size = 0;
    std::uint64_t version = 0;
    std::uint64_t count = 0;
    std::vector<RecordFacts> records;
    WalkFacts walk;
    WalkFacts walkOfLoad;  // asks for the field "load" only
    std::vector<ReopeningFacts> reopenings;
};

// The maximum sizes to reopen a file of this length with.
std::vector<std::uint64_t> MaxSizesFor(std::uint64_t size);

// The facts as the library finds them. It reopens copies beside the file. Throws std::logic_error if reader and scanner
// disagree.
Facts FactsByLibrary(const std::string& path);

// The members of a JSON object, without its braces.
std::string JsonOf(const Facts& facts);

}  // namespace vectors
