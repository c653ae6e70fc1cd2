#pragma once

#include <Platform/Types/Error.hpp>

namespace tarn {

/// What every error class of an application and of this library derives from: a message for people,
/// beside the domain and code that an error has anyway. Its user info is made from the message.
class AppError : public CodedError {};

}  // namespace tarn
