#include "frame/environment.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

namespace psia {

Environment::Environment() : variables_at_start_(environ) {
  const char* name = std::getenv("HOSTNAME");
  host_name_at_start_ = name == nullptr ? "(null)" : name;
}

Environment::~Environment() {
  environ = variables_at_start_;  // what it points to now belongs to libfcgi or to this object
}

void Environment::restore_tz() {
  if (tz_variable_.empty()) return;
  // Not by putenv: where the request has a TZ it would store into the array whose texts libfcgi frees after
  // the request.
  std::vector<char*> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (std::strncmp(*variable, "TZ=", 3) != 0) variables.push_back(*variable);
  }
  variables.push_back(const_cast<char*>(tz_variable_.c_str()));
  variables.push_back(nullptr);
  variables_ = std::move(variables);
  environ = variables_.data();
}

void Environment::set_tz(const char* rule) {
  current_tz_.assign(rule);
  tz_variable_.assign((std::string("TZ=") + current_tz_.c_str()).c_str());
  restore_tz();
  tzset();
}

const char* Environment::host_name() const {
  const char* name = std::getenv("HOSTNAME");
  return name == nullptr ? host_name_at_start_.c_str() : name;
}

}  // namespace psia
