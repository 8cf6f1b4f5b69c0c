#include "sync/AutoLock.h"

namespace kennly {

AutoLock::AutoLock(CriticalSection* lock) : lock_(lock) {
    lock_->Lock();
}

AutoLock::~AutoLock() {
    Release();
}

void AutoLock::Release() {
    if (lock_ != nullptr) {
        lock_->Unlock();
        lock_ = nullptr;
    }
}

}  // namespace kennly
