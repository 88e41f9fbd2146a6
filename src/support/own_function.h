/*
 * Whether an exported function is still this library's own: the process may have put another behind its name.
 */
#ifndef SRC_SUPPORT_OWN_FUNCTION_H
#define SRC_SUPPORT_OWN_FUNCTION_H

// Once in the source that defines the function, in front of QOS_TLM_IS_OWN.
#define QOS_TLM_OWN_FUNCTION(name) extern "C" [[gnu::alias(#name), gnu::visibility("hidden")]] decltype(name) own_##name

namespace qos {

// Clang takes two names for two functions, without a look at their addresses, unless one address is hidden from it.
template <class Function>
bool isSameFunction(Function* named, Function* own) {
    asm("" : "+r"(own));
    return named == own;
}

}  // namespace qos

#define QOS_TLM_IS_OWN(name) qos::isSameFunction(&(name), &own_##name)

#endif
