// A shared object of an application that registers texts of its own.
#include "Tolvex/Types/LogModule.h"

extern "C" TOLVEX_EXPORT void RegisterText(int value, const char* text)
{
    Tolvex::Util::EnumString<Tolvex::LogModule>::RegisterEnumerator(
        static_cast<Tolvex::LogModule>(value), text);
}

extern "C" TOLVEX_EXPORT const void* TableOfLibrary()
{
    return &Tolvex::Util::EnumString<Tolvex::LogModule>::GetMap();
}
