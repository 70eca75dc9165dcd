#include "core/environment.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace psia {

namespace {
constexpr std::size_t kNameLength = sizeof("TZ=") - 1;
}  // namespace

Environment::Environment() : variables_at_start_(environ) {
  if (const char* name = std::getenv("HOSTNAME")) host_name_at_start_.reset(strdup(name));
}

Environment::~Environment() {
  environ = variables_at_start_;  // what it points to now belongs to libfcgi or to this object
  std::free(variables_);
}

void Environment::restore_tz() {
  if (tz_variable_.empty() || environ == variables_) return;  // none was set, or it is there already
  // Not by putenv: if the request has a TZ, putenv would store into the array whose texts libfcgi frees after
  // the request.
  std::size_t count = 0;
  while (environ[count] != nullptr)
    ++count;
  if (room_ < count + 2) {
    auto* const variables = static_cast<char**>(std::realloc(variables_, (count + 2) * sizeof(char*)));
    if (variables == nullptr) return;
    variables_ = variables;
    room_ = count + 2;
  }
  char** place = variables_;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (std::strncmp(*variable, "TZ=", kNameLength) != 0) *place++ = *variable;
  }
  *place++ = const_cast<char*>(tz_variable_.c_str());
  *place = nullptr;
  environ = variables_;
}

void Environment::set_tz(const char* rule) {
  std::array<char, sizeof tz_variable_> variable{};
  (void)std::snprintf(variable.data(), variable.size(), "TZ=%s", rule);
  tz_variable_.assign(variable.data());
  restore_tz();
  tzset();
}

const char* Environment::current_tz() const {
  return tz_variable_.empty() ? "" : tz_variable_.c_str() + kNameLength;
}

const char* Environment::host_name() const {
  const char* name = std::getenv("HOSTNAME");
  if (name == nullptr) name = host_name_at_start_.get();
  return name == nullptr ? "(null)" : name;
}

}  // namespace psia
