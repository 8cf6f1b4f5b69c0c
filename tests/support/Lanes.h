#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <exception>
#include <functional>
#include <thread>
#include <vector>

namespace kennly::test {

/// Has `run` called in as many threads at once, each with a fixture of system tests of its own and
/// its number, from 0.
///
/// The fixture's sandbox is made before; `run` may give it another one by calling SetUp() again.
/// What `run` calls of the fixture has to be public.
template <class Lane>
void RunInLanes(int count, const std::function<void(Lane&, int)>& run) {
    struct Instance : Lane {
        void TestBody() override {}
        using Lane::sandbox;
        using Lane::SetUp;
        using Lane::TearDown;
    };
    const auto runOne = [&run](int number) {
        Instance lane;
        try {
            lane.SetUp();
            if (lane.sandbox) {
                run(lane, number);
            }
        } catch (const std::exception& thrown) {  // out of a thread it would end all lanes
            ADD_FAILURE() << thrown.what();
        }
        lane.TearDown();
    };
    std::vector<std::thread> lanes;
    for (int number = 0; number < count; ++number) {
        lanes.emplace_back(runOne, number);
    }
    for (std::thread& lane : lanes) {
        lane.join();
    }
}

/// The same with one lane for each item.
template <class Lane, class Item, class Run>
void RunAtOnce(const std::vector<Item>& items, const Run& run) {
    RunInLanes<Lane>(static_cast<int>(items.size()), [&](Lane& lane, int number) {
        const Item& item = items[static_cast<std::size_t>(number)];
        SCOPED_TRACE(::testing::PrintToString(item));
        run(lane, item);
    });
}

}  // namespace kennly::test
