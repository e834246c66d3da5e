/// @file
/// Two further shared objects: one throws the library's exception, the other catches it.
#pragma once

#include <string>
#include <typeinfo>

#include "Tolvex/Exception/IException.h"

namespace Tolvex::Support {

/// Throws IException(text) inside the throwing shared object.
__attribute__((visibility("default"))) void ThrowInSharedObject(const char* text);

/// The exception's type as the throwing shared object sees it.
__attribute__((visibility("default"))) const std::type_info& GetTypeInThrower();

/// Calls thrower(text) inside the catching shared object. @return the text of the IException that
/// it caught there; anything else passes through.
__attribute__((visibility("default"))) std::string CatchInSharedObject(void (*thrower)(const char*),
                                                                       const char* text);

/// The exception's type as the catching shared object sees it.
__attribute__((visibility("default"))) const std::type_info& GetTypeInCatcher();

}  // namespace Tolvex::Support
