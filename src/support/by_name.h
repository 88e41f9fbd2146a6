/*
 * Calls by name where a function calls itself: a compiler goes straight there, since it is that function already, but
 * the process may have put another one behind the name.
 */
#ifndef SRC_SUPPORT_BY_NAME_H
#define SRC_SUPPORT_BY_NAME_H

// Declares a second identifier for an exported function, of which the compiler knows nothing but the name.
#define QOS_TLM_BY_NAME(identifier, function) \
    extern "C" [[gnu::visibility("default")]] decltype(function) identifier asm(#function)

#endif
