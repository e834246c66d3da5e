#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Interfaces {

/// Base of the classes that keep the text of their last failure for the caller.
///
/// The constructor of a derived class sets the names of its namespace and class. Each of its
/// operations calls ResetError() first, so that the text always belongs to the last call. An
/// operation that fails calls SetError() before it returns false or 0. This class logs nothing and
/// keeps no history.
/// @code
/// class Door : public Interfaces::IError
/// {
/// public:
///     Door()
///     {
///         SetNamespace("Garage");
///         SetClassName("Door");
///     }
///
///     bool Open()
///     {
///         ResetError();
///         if (locked) {
///             SetError("The door is locked", "Open", true, true);
///             return false;
///         }
///         return true;
///     }
///
///     bool locked = true;
/// };
///
/// Door door;
/// if (!door.Open()) {
///     std::cout << door.GetErrorText();  // [Namespace: Garage][Class: Door][Method: Open]The ...
/// }
/// @endcode
/// @par Errors
/// std::bad_alloc and std::length_error when a string cannot grow; the previous text then stays.
/// @par Thread safety
/// Caller serialises.
class TOLVEX_EXPORT IError
{
public:
    /// Makes an object without an error and without names.
    IError();
    /// May be destroyed through a pointer to this class.
    virtual ~IError();

    /// Copies names, text and code.
    IError(const IError& other) = default;
    IError& operator=(const IError& other) = default;

    /// Names the namespace of the derived class.
    /// @param name  Such as "Tolvex::Util"; empty for none.
    void SetNamespace(const std::string& name) { namespaceName = name; }

    /// Names the derived class.
    /// @param name  Such as "Timer"; empty for none.
    void SetClassName(const std::string& name) { className = name; }

    /// Empties the text and sets the code to 0.
    void ResetError();

    /// Replaces the text. The new text is the requested parts (namespace, class, method), followed
    /// by the message: "[Namespace: Tolvex::Util][Class: Timer][Method: Create]Create timer error".
    ///
    /// Does not change the code. An argument may be this object's own text.
    /// @param message        What went wrong.
    /// @param method         The method in which it went wrong; an empty name omits the part.
    /// @param withNamespace  Adds the namespace, unless it is empty.
    /// @param withClass      Adds the class, unless it is empty.
    void SetError(const std::string& message, const std::string& method, bool withNamespace,
                  bool withClass);

    /// As above, with the message "[#Exception]" and exception.what() directly behind it.
    ///
    /// @param exception      What went wrong.
    /// @param method         The method in which it went wrong; an empty name omits the part.
    /// @param withNamespace  Adds the namespace, unless it is empty.
    /// @param withClass      Adds the class, unless it is empty.
    void SetError(const std::exception& exception, const std::string& method, bool withNamespace,
                  bool withClass);

    /// @return the text of the last failure, or an empty text. The reference is valid as long as
    /// this object exists. The next operation changes the text.
    const std::string& GetErrorText() const { return errorText; }

    /// @return 0, unless a derived class has set a code after the last ResetError().
    int GetErrorCode() const { return errorCode; }

protected:
    std::string errorText;       ///< the last error, with the parts before the message
    std::int32_t errorCode = 0;  ///< for derived classes; the library only clears it
    std::string namespaceName;   ///< set once, by the constructor of the derived class
    std::string className;       ///< set once, by the constructor of the derived class
};

}  // namespace Tolvex::Interfaces
