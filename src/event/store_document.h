// Changes of the Event resources. The client is told of a body that cannot be used, but not of a statement
// that fails; it reads the resource again when it needs to know. Kept for compatibility.
#pragma once

#include "frame/request.h"
#include "frame/response.h"
#include "frame/service.h"
#include "frame/xml.h"

namespace psia {

/// Reads the request's document and calls `store` with its root element, to run the statements as one
/// transaction. Answers status 3 when the body is no document with the root `root_name`, otherwise status 1.
template <typename Store>
void store_document(Service& service, const Request& request, const char* root_name, const Store& store) {
  const XmlDocument document = read_document(request, root_name);
  if (!document) return answer_status(request, Status::kDeviceError);
  Transaction transaction(service.database);
  store(document.root());
  (void)transaction.commit();
  answer_status(request, Status::kOk);
}

}  // namespace psia
