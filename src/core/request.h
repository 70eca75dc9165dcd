// One request. Built after its credentials were checked and passed down to the handler. libfcgi owns the
// texts and frees them when the request ends; nothing keeps them.
#pragma once

namespace psia {

struct Request {
  const char* uri;             ///< as the client sent it, query included
  const char* method;          ///< "GET", "PUT", "POST" or "DELETE" in any case, or anything else
  const char* content_length;  ///< null when the web server gave none
  int level;                   ///< user level, 0 the most privileged
  const char* tail;            ///< the URI behind the prefix of the route that took the request
};

}  // namespace psia
