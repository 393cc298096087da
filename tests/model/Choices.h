#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>

namespace model {

// Bytes that decide: of a random generator, or of a fuzzer. Past their end every choice is the first.
class Choices {
public:
    explicit Choices(std::string bytes) : bytes_(std::move(bytes)) {}

    bool Ended() const { return at_ >= bytes_.size(); }

    // 0 to end - 1.
    std::uint64_t Below(std::uint64_t end)
    {
        std::uint64_t number = 0;
        for (std::uint64_t most = 1; most < end; most <<= 8U) {
            number = number << 8U | (Ended() ? 0U : static_cast<unsigned char>(bytes_[at_++]));
        }
        return number % end;
    }

    bool OneIn(std::uint64_t n) { return Below(n) == 0; }

    template <typename Element, std::size_t kCount>
    Element Of(const std::array<Element, kCount>& elements)
    {
        return elements[Below(kCount)];
    }

    // Some of the elements, in their order.
    template <typename Container, typename Element, std::size_t kCount>
    Container Subset(const std::array<Element, kCount>& elements)
    {
        Container subset;
        const std::uint64_t mask = Below(256);
        for (std::size_t i = 0; i < kCount; ++i) {
            if ((mask >> i & 1U) != 0) {
                subset.insert(subset.end(), elements[i]);
            }
        }
        return subset;
    }

private:
    std::string bytes_;
    std::size_t at_ = 0;
};

}  // namespace model
