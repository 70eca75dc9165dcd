#include "media/streaming_status.h"

#include <cstring>

#include "context.h"
#include "core/response.h"

namespace psia {

namespace {

constexpr int kAddress = 2;  // the column of ClientList with the client's address

}  // namespace

void read_streaming_status(Context& context, const Request& request) {
  const Rows clients = context.database.query("select * from ClientList");
  if (!clients.succeeded()) return answer_status(request, Status::kDeviceError);
  answer_xml(request, [&clients](TextBuffer& document) {
    document.append(kXmlDeclarationCrLf);
    document.append("<StreamingStatus version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    document.append("<totalStreamingSessions>", clients.count(), "</totalStreamingSessions>");
    document.append("<StreamingSessionStatusList version=\"1.0\">");
    for (int row = 0; row < clients.count(); ++row) {
      document.append("<StreamingSessionStatus version=\"1.0\"><clientAddress><ipAddress>",
                      clients.text(row, kAddress), "</ipAddress></clientAddress></StreamingSessionStatus>");
    }
    document.append("</StreamingSessionStatusList>");
    document.append("</StreamingStatus>");
  });
}

void read_streaming_channel_status(Context& context, const Request& request) {
  // Clients rely on this: the length of the whole URI chooses the stream. `Slave-0` lists the clients of the
  // Slave stream, a name of any other length, 2 too, those of the Master stream.
  const bool slave = std::strlen(request.uri) == std::strlen("/PSIA/Streaming/channels/Slave-0/status");
  const Rows clients = slave ? context.database.query("select * from ClientList where StreamName='Slave-0'")
                             : context.database.query("select * from ClientList where StreamName='Master-0'");
  if (!clients.found()) return answer_status(request, Status::kDeviceError);

  // Kept for compatibility: unlike other documents this one has no Content-Length, its header lines end in
  // line feeds alone, and percent signs are sent as they are stored.
  write_text("Content-Type: application/xml; charset=\"UTF-8\"\n\n");
  write_text(kXmlDeclarationCrLf);
  write_text("<StreamingSessionStatusList version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  for (int row = 0; row < clients.count(); ++row) {
    write_text("<StreamingSessionStatus><clientAddress><ipAddress>");
    write_text(clients.text(row, kAddress));
    write_text("</ipAddress></clientAddress></StreamingSessionStatus>");
  }
  write_text("</StreamingSessionStatusList>");
}

}  // namespace psia
