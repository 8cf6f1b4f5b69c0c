#include "config/DogConfig.h"
#include "config/FileTime.h"
#include "main/Log.h"
#include "main/ProcessState.h"

namespace kennly {

std::int32_t DogConfig::ReloadConfigIfConfigHasChanged() {
    try {
        std::int32_t fileTime = 0;
        if (!GetFileTime(configFile, fileTime)) {
            return ReloadNoFile;
        }
        if (fileTime == fileTime_) {
            return ReloadUnchanged;
        }
        if (!Load()) {
            LogError("Configuration file parse error");
            return ReloadParseError;
        }
        fileTime_ = fileTime;
        return ReloadLoaded;
    } catch (...) {
        LogError("exception in ReloadConfigIfConfigHasChanged");
        return ReloadException;
    }
}

}  // namespace kennly
