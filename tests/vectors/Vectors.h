#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Corvane/Pellin/DataChunk.h"
#include "vectors/Facts.h"

namespace vectors {

// What `chunkfile check` finds.
struct CheckFacts {
    std::string verdict;
    std::vector<std::string> findings;  // "CODE BEGIN-END", such as "bad-record 103-166"
    std::uint64_t found = 0;            // records after damage that count as the file's
    std::uint64_t doubtful = 0;
};

// A file's content and what docs/format.md says of it.
struct Vector {
    std::string name;
    std::string state;  // a row of the page's table of states, or a heading
    std::string about;
    std::string bytes;
    std::vector<Corvane::Pellin::DataChunk> seen;  // by a reader of all fields, back to back
    std::string end;                               // of its walk
    CheckFacts check;
    std::optional<WalkFacts> walkOfLoad = std::nullopt;  // if it differs
    std::uint64_t completed = 0;                         // records that the zeros of a larger maximum size make whole
};

// Every state of the page that is a file's content.
std::vector<Vector> AllVectors();

// What the page's rules make of it. The library has no part in this.
Facts FactsByPage(const Vector& vector);

// The content of NAME.json.
std::string JsonOf(const Vector& vector);

}  // namespace vectors
