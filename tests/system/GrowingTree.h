#pragma once

#include <sys/types.h>

#include <csignal>
#include <optional>
#include <string>

#include "support/DaemonProcesses.h"
#include "support/ProcessView.h"
#include "support/Sandbox.h"

namespace kennly::test {

/// The processes of a program that starts, each found by its parent.
class GrowingTree {
public:
    using Found = std::optional<DaemonProcess>;

    GrowingTree(const Sandbox& sandbox, pid_t first)
        : sandbox_(sandbox), first_(first), numberOfFirst_(NumberInside(first)) {}

    /// Once it holds signals.
    Found FirstProcess() const {
        const bool holds = HasSignal(StatusField(first_, "SigBlk"), SIGTERM);
        return holds ? daemonprocesses::Describe(first_) : std::nullopt;
    }
    /// An orphan when the first process has ended.
    Found Parent() const {
        const Found ofFirst = ChildOf(numberOfFirst_, "P ");
        return ofFirst ? ofFirst : ChildOf(NumberInside(sandbox_.FirstProcess()), "P ");
    }
    /// It may yet have to execute the program.
    Found Child() const {
        const Found parent = Parent();
        const auto children = ChildrenOf(sandbox_, parent ? parent->number : "none");
        return children.empty() ? std::nullopt : Found(children.front());
    }
    Found WatcherStarter() const {
        const Found parent = Parent();
        return parent ? ChildOf(parent->number, "WP") : std::nullopt;
    }

private:
    Found ChildOf(const std::string& parent, const std::string& childTag) const {
        for (const DaemonProcess& child : ChildrenOf(sandbox_, parent)) {
            if (child.Tag() == childTag && child.outside != first_) {
                return child;
            }
        }
        return std::nullopt;
    }

    const Sandbox& sandbox_;
    const pid_t first_;
    const std::string numberOfFirst_;
};

}  // namespace kennly::test
