// Serving one client connection: requests read one after another until the client closes, an
// error closes the connection, or the server stops.
#ifndef KIV_HOST_CONNECTION_H_
#define KIV_HOST_CONNECTION_H_

#include "settings.h"

#include <kiv/queues.h>

#include <atomic>
#include <string>

namespace kiv_host {

// What a connection needs from its server. Everything here outlives the connection.
struct ConnectionContext {
  const Settings* settings;
  int stop_fd;  // readable once the server stops
  const std::atomic<bool>* stopping;
  const kiv::QueueItf* waiting;  // connections waiting for a worker
};

// Serves the connection on `fd` (which the caller closes afterwards). Never throws: every failure
// is answered where that is still possible, logged, and ends the connection.
void ServeConnection(int fd, const std::string& peer, const ConnectionContext& context);

}  // namespace kiv_host

#endif  // KIV_HOST_CONNECTION_H_
