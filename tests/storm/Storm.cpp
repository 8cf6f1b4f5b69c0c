#include "storm/Storm.h"

#include <getopt.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <random>
#include <thread>

namespace kennly::test {

namespace {

StormOptions options;
const auto begin = std::chrono::steady_clock::now();

std::string Short(double value) {
    char text[32];
    std::snprintf(text, sizeof(text), value == std::floor(value) ? "%.0f" : "%.2f", value);
    return text;
}

std::optional<std::uint32_t> NumberFrom(const char* text) {
    char* end = nullptr;
    const unsigned long number = std::strtoul(text, &end, 10);
    if (*text == '\0' || *end != '\0' || number > UINT32_MAX) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(number);
}

bool ReadOptions(int argumentCount, char** arguments) {
    const option known[] = {{"seconds", required_argument, nullptr, 't'},
                            {"seed", required_argument, nullptr, 's'},
                            {nullptr, 0, nullptr, 0}};
    options.seed = std::random_device()();
    for (int found = 0;
         (found = getopt_long(argumentCount, arguments, "", known, nullptr)) != -1;) {
        const auto number = found == '?' ? std::nullopt : NumberFrom(optarg);
        if (!number) {
            return false;
        }
        if (found == 't') {
            options.duration = std::chrono::seconds(*number);
        } else {
            options.seed = *number;
        }
    }
    return optind == argumentCount;
}

}  // namespace

const StormOptions& Options() {
    return options;
}

bool StormGoesOn() {
    return std::chrono::steady_clock::now() - begin < options.duration &&
           !::testing::Test::HasFailure();
}

int BusyLanes() {
    return std::clamp(2 * static_cast<int>(std::thread::hardware_concurrency()), 2, 6);
}

std::string& Figures::TextOf(const std::string& name) {
    for (auto& [known, text] : texts_) {
        if (known == name) {
            return text;
        }
    }
    return texts_.emplace_back(name, "").second;
}

void Figures::Count(const std::string& name, std::int64_t times) {
    const std::lock_guard<std::mutex> hold(lock_);
    counts_[name] += times;
    TextOf(name) = std::to_string(counts_[name]);
}

void Figures::Largest(const std::string& name, double value) {
    const std::lock_guard<std::mutex> hold(lock_);
    double& largest = largest_.emplace(name, value).first->second;
    largest = std::max(largest, value);
    TextOf(name) = Short(largest);
}

void Figures::Tell(const std::string& name, const std::string& text) {
    const std::lock_guard<std::mutex> hold(lock_);
    TextOf(name) = text;
}

std::int64_t Figures::CountOf(const std::string& name) const {
    const std::lock_guard<std::mutex> hold(lock_);
    const auto found = counts_.find(name);
    return found == counts_.end() ? 0 : found->second;
}

void Figures::Print() const {
    const std::lock_guard<std::mutex> hold(lock_);
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
    for (const auto& [name, text] : texts_) {
        std::cout << "    " << name << ": " << text << "\n";
    }
    std::cout << "    seed " << options.seed << ", " << Short(passed.count()) << " s" << std::endl;
}

}  // namespace kennly::test

int main(int argumentCount, char** arguments) {
    ::testing::InitGoogleTest(&argumentCount, arguments);
    if (!kennly::test::ReadOptions(argumentCount, arguments)) {
        std::cerr << "options: --seconds=<n> --seed=<n>\n";
        return 2;
    }
    std::cout << "seed " << kennly::test::Options().seed << std::endl;
    return RUN_ALL_TESTS();
}
