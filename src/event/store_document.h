// Changes of the Event resources. The client is told of a body that cannot be used, but not of a statement
// that fails; it reads the resource again when it needs to know. Kept for compatibility.
#pragma once

#include "context.h"
#include "core/request.h"
#include "core/response.h"
#include "core/xml.h"

namespace psia {

/// Reads the request's document and calls `store` with its root element, to run the statements as one
/// transaction. Answers status 3 when the body is no document with the root `root_name`, otherwise status 1.
template <typename Store>
void store_document(Context& context, const Request& request, const char* root_name, const Store& store) {
  const XmlDocument document = receive_document(request, root_name);
  if (!document) return answer_status(request, Status::kDeviceError);
  Transaction transaction(context.database);
  store(document.root());
  (void)transaction.commit();
  answer_status(request, Status::kOk);
}

}  // namespace psia
