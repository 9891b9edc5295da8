// What a call that must throw has to say.
#pragma once

#include <string>

namespace GuardTest {

// The message of the Error that `call` throws.
template <class Error, class Call>
std::string messageOf(Call call) {
  try {
    call();
  } catch (const Error& error) {
    return error.message();
  }
  return "nothing was thrown";
}

}  // namespace GuardTest
