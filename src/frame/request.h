// What one request is. Built once after its credentials have been checked, passed down to the handler. The
// texts belong to libfcgi and are gone with the next accept: nothing keeps them.
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
