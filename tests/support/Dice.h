#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace kennly::test {

/// Random choices, the same for the same seed and stream.
class Dice {
public:
    explicit Dice(std::uint32_t seed, std::uint32_t stream = 0) {
        std::seed_seq both{seed, stream};
        engine_.seed(both);
    }

    std::size_t Below(std::size_t limit) { return engine_() % limit; }
    /// A number from 0 to `most`.
    std::uint32_t UpTo(std::uint32_t most) {
        return std::uniform_int_distribution<std::uint32_t>(0, most)(engine_);
    }
    /// A time from none to `longest`.
    std::chrono::milliseconds UpTo(std::chrono::milliseconds longest) {
        return std::chrono::milliseconds(UpTo(static_cast<std::uint32_t>(longest.count())));
    }
    bool OneIn(std::size_t chances) { return Below(chances) == 0; }

    template <class T>
    const T& Pick(const std::vector<T>& choices) {
        return choices[Below(choices.size())];
    }

    std::string Pick(std::initializer_list<const char*> choices) {
        return choices.begin()[Below(choices.size())];
    }

    template <class T>
    void Shuffle(std::vector<T>& items) {
        for (std::size_t left = items.size(); left > 1; --left) {
            std::swap(items[left - 1], items[Below(left)]);
        }
    }

    /// `text` with some of its letters in the other case.
    std::string AnyCase(std::string text) {
        for (char& c : text) {
            const bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
            if (isLetter && OneIn(4)) {
                c = static_cast<char>(c ^ ' ');
            }
        }
        return text;
    }

private:
    std::mt19937 engine_;
};

}  // namespace kennly::test
