// How the Event resources take a change: only a body that cannot be used is reported to the client. What the
// statements then do is not; clients read the resource again when they need to know.
#pragma once

#include "frame/request.h"
#include "frame/response.h"
#include "frame/service.h"
#include "frame/xml.h"

namespace psia {

/// Reads the request's document and lets `store` run the statements that its root element asks for, as one
/// transaction. Answers status 3 when the body is no document with the root `root_name`, otherwise status 1
/// whatever the statements gave.
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
