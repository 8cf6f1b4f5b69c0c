#pragma once

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include <string>

#include "support/SandboxDescriptor.h"

namespace kennly::test {

/// From now on new files in the directory keep no times of access, though the file system is not
/// mounted so: as many of networks and of user space do. Returns false where that cannot be had.
inline bool KeepsNoAccessTimes(const std::string& directory) {
    const Descriptor opened(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    int flags = 0;
    if (ioctl(opened.Get(), FS_IOC_GETFLAGS, &flags) != 0) {
        return false;
    }
    flags |= FS_NOATIME_FL;
    return ioctl(opened.Get(), FS_IOC_SETFLAGS, &flags) == 0;
}

}  // namespace kennly::test
