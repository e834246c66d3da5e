#include "Tolvex/Interfaces/IError.h"

namespace Tolvex::Interfaces {

IError::IError()
{
    ResetError();
}

IError::~IError() = default;

void IError::ResetError()
{
    errorText.clear();
    errorCode = 0;
}

void IError::SetError(const std::string& message, const std::string& method, bool withNamespace,
                      bool withClass)
{
    // Built in a copy: an argument may be errorText itself.
    std::string text;
    if (withNamespace && !namespaceName.empty()) {
        text += "[Namespace: " + namespaceName + "]";
    }
    if (withClass && !className.empty()) {
        text += "[Class: " + className + "]";
    }
    if (!method.empty()) {
        text += "[Method: " + method + "]";
    }
    text += message;

    errorText.swap(text);
}

void IError::SetError(const std::exception& exception, const std::string& method,
                      bool withNamespace, bool withClass)
{
    const char* const what = exception.what();
    // An exception class of an application may return null.
    SetError(std::string("[#Exception]") + (what != nullptr ? what : ""), method, withNamespace,
             withClass);
}

}  // namespace Tolvex::Interfaces
