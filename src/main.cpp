// Start, accept loop and stop of the service.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include "command_line.h"
#include "context.h"
#include "core/access_control.h"
#include "core/control_queue.h"
#include "core/database.h"
#include "core/environment.h"
#include "core/fastcgi.h"
#include "core/paths.h"
#include "core/stop.h"
#include "core/xml.h"
#include "index/index_documents.h"
#include "routes.h"
#include "system/time_zone_table.h"

namespace {

/// Web servers start FastCGI programs with file descriptors 1 and 2 closed. The next file or connection would
/// then become standard output, and Event documents would be written into it.
void open_standard_descriptors() {
  for (int descriptor = 0; descriptor <= 2; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) == -1) (void)open("/dev/null", O_RDWR);  // takes the lowest free number
  }
}

void handle_request(psia::Context& context) {
  const int level = psia::check_access(context.database, std::getenv("HTTP_AUTHORIZATION"));
  if (level < 0) return;
  const char* uri = std::getenv("REQUEST_URI");
  const char* method = std::getenv("REQUEST_METHOD");
  if (uri == nullptr || method == nullptr) return;
  psia::dispatch(context, {.uri = uri,
                           .method = method,
                           .content_length = std::getenv("CONTENT_LENGTH"),
                           .level = level,
                           .tail = ""});
}

}  // namespace

int main(int argc, char** argv) {
  open_standard_descriptors();
  if (const std::optional<int> status = psia::answer_person(argc, argv)) return *status;
  psia::install_stop_signals();
  psia::prepare_xml();
  psia::Environment environment;

  psia::Database database;
  if (!database.open(psia::kConfigurationDatabase)) {
    std::fputs("PSIA: DB Open Failed\n", stderr);  // libfcgi's error stream does not exist before an accept
    return -1;
  }
  std::optional<psia::ControlQueues> queues = psia::ControlQueues::open();
  if (!queues) return EXIT_SUCCESS;
  const psia::TzPairListOwner time_zones(psia::tz_pair_list_create());
  if (!time_zones || !psia::tz_table_fill(*time_zones)) return EXIT_FAILURE;

  const psia::IndexDocuments index_documents;
  if (!index_documents.valid()) return EXIT_FAILURE;

  psia::Context context{environment, database, *queues, *time_zones, index_documents};
  psia::FastCgi fastcgi;
  while (fastcgi.accept()) {
    environment.restore_tz();
    queues->begin_request();
    handle_request(context);
    fastcgi.finish();
  }
  return EXIT_SUCCESS;
}
