// The process environment, with names and values as 16-bit text.
//
// The runtime's own environment functions do the work and their locking is the runtime's. Names
// and values are converted between 16-bit text and the environment's 8-bit text (UTF-8 here);
// bytes that are not UTF-8 read as U+FFFD.
#ifndef KIV_PLATFORM_ENVIRONMENT_H_
#define KIV_PLATFORM_ENVIRONMENT_H_

#include <string>
#include <vector>

namespace kiv::platform {

// The value of `name`; false (and `value` untouched) when the variable is not set.
bool GetEnvironmentVariable(const std::u16string& name, std::u16string& value);
// Sets `name` to `value`; false when the runtime refuses (an empty name or one holding '=').
bool SetEnvironmentVariable(const std::u16string& name, const std::u16string& value);
// Removes `name` from the environment; false when the runtime refuses.
bool UnsetEnvironmentVariable(const std::u16string& name);
// The names of every variable of the environment block, in its order.
std::vector<std::u16string> EnvironmentVariableNames();

}  // namespace kiv::platform

#endif  // KIV_PLATFORM_ENVIRONMENT_H_
