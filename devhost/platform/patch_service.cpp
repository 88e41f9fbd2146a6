#include "platform/patch_service.h"

#include <atomic>

#include "devhost/platform/stand_in.h"

namespace {

std::atomic<TarnPatC2HHook> registeredHook{nullptr};

}  // namespace

uint32_t TARN_PAT_C2HRegisterHook(TarnPatC2HHook hook) {
    if (devhost::refusals().patchHook != 0) {
        return devhost::refusals().patchHook;
    }
    if (hook == nullptr) {
        return 1;
    }
    registeredHook = hook;
    return 0;
}

uint32_t TARN_PAT_RestoreForDLL(void* handle) {
    if (devhost::refusals().loadedLibrary != 0) {
        return devhost::refusals().loadedLibrary;
    }
    return handle == nullptr ? 1 : 0;
}

namespace devhost {

TarnPatC2HHook patchHook() {
    return registeredHook;
}

}  // namespace devhost
