#include "platform/patch_service.h"

// Nobody patches the plug-in off the device: its hook is accepted and never called.
uint32_t TARN_PAT_C2HRegisterHook(TarnPatC2HHook hook) {
    return hook == nullptr ? 1 : 0;
}

uint32_t TARN_PAT_RestoreForDLL(void* handle) {
    return handle == nullptr ? 1 : 0;
}
