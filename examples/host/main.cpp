// kiv-host: an example HTTP/1.1 server built on the library and POSIX sockets and threads.
//
// Usage: kiv-host [--config FILE] [--selftest]
//
// Serves GET and HEAD of the files under the document root, and POST /upper, which answers the
// request's text upper-cased in chunked coding. Settings come from a properties file (FILE, or
// host.properties beside the sources; see settings.h for the keys). Prints the address it
// listens on as its first line of standard output.
//
// Signals: SIGHUP reads the settings file again and publishes it, so the log level changes without
// a restart (the other settings are read once, at start); SIGTERM and SIGINT stop accepting, let
// running requests finish within the grace period, run the on-exit task queues and exit 0.
// --selftest starts on a free port, sends itself a few requests, and exits 0 when all passed.
#include "host_util.h"
#include "selftest.h"
#include "server.h"
#include "settings.h"

#include <kiv/exception.h>
#include <kiv/filters.h>
#include <kiv/log.h>
#include <kiv/resource.h>
#include <kiv/tasks.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

using kiv_host::Log;
using kiv_host::Utf8;

// Logs the end of the process and pushes the log file out; runs from the on-exit queue.
class FinalLogTask final : public kiv::TaskItf {
 public:
  explicit FinalLogTask(std::FILE* file) : file_(file) {}
  void Run() override {
    Log(kiv::LogWarn, "stopped");
    std::fflush(file_);
  }
  void Cancel() override {}

 private:
  std::FILE* file_;
};

// Runs every list of both process-wide on-exit queues; a failing task does not stop the others.
void RunOnExitQueues() {
  for (bool which : {true, false}) {
    kiv::Ref<kiv::TaskQueueItf> queue = kiv::TaskQueueExp::MakeOnExit(which);
    for (bool second : {false, true}) {
      kiv::Enumeration tasks = queue->GetTasks(second)->Elements();
      queue->RunTasksSafely(tasks);
    }
  }
}

// The log goes to `path` (appended to), or to the standard error stream when it is empty.
std::FILE* OpenLog(const std::string& path) {
  std::FILE* file = stderr;
  if (!path.empty()) {
    file = std::fopen(path.c_str(), "a");
    if (file == nullptr) {
      throw std::runtime_error("cannot open the log file " + path + ": " + std::strerror(errno));
    }
    std::setvbuf(file, nullptr, _IOLBF, 0);  // every entry reaches the file as it is written
  }
  kiv::LogWriterExp::Init(kiv::MTSyncIOStreamExp::Make(kiv::SyncOutputStreamExp::Make(file)));
  return file;
}

// Waits for the signals of the control set; returns on SIGTERM or SIGINT.
void HandleSignals(const sigset_t& signals, const std::string& config) {
  for (;;) {
    int signal = 0;
    if (sigwait(&signals, &signal) != 0) continue;
    if (signal != SIGHUP) {
      Log(kiv::LogWarn, std::string("stopping on ") + strsignal(signal));
      return;
    }
    try {
      kiv_host::PublishPreferences(config);
      Log(kiv::LogWarn, "settings reloaded from " + config);
    } catch (...) {
      Log(kiv::LogError, "settings not reloaded: " + kiv::DescribeCurrentException());
    }
  }
}

int Usage() {
  std::fprintf(stderr, "usage: kiv-host [--config FILE] [--selftest]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  kiv::InstallTerminateHandler();
  std::string config = KIV_HOST_CONFIG;
  bool selftest = false;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--config") == 0 && i + 1 < argc) {
      config = argv[++i];
    } else if (std::strcmp(argv[i], "--selftest") == 0) {
      selftest = true;
    } else {
      return Usage();
    }
  }

  // The control signals go to the waiting thread only: block them before any thread starts, so
  // every thread inherits the mask. Writes to a closed connection fail instead of killing us.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGHUP);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);

  try {
    // The log first, so that it hears the publication of the settings.
    OpenLog("");
    kiv::LogWriterExp::SetIdent(Utf8("kiv-host"));
    kiv_host::PublishPreferences(config);
    kiv_host::Settings settings = kiv_host::ReadSettings(config);
    if (selftest) {
      settings.address = "127.0.0.1";
      settings.port = 0;
    }
    std::FILE* log_file = OpenLog(settings.log_file);
    kiv::TaskQueueExp::MakeOnExit(true)->Add(kiv::Object(new FinalLogTask(log_file)), false);
    try {
      kiv::MIMEExp::Load(kiv::SyncResourceExp::Make(Utf8(settings.mime_types)));
    } catch (const kiv::ResourceException&) {
      Log(kiv::LogWarn, "no MIME table at " + settings.mime_types + ", using the system's");
    }

    kiv_host::Server server(settings);
    server.Start();
    std::printf("kiv-host listening on http://%s:%d/\n", settings.address.c_str(), server.Port());
    std::fflush(stdout);
    Log(kiv::LogWarn, "listening on " + settings.address + ":" + std::to_string(server.Port()) +
                          ", serving " + settings.document_root);

    bool passed = true;
    if (selftest) {
      passed = kiv_host::RunSelfTest(server.Port());
    } else {
      HandleSignals(signals, config);
    }
    server.Stop(std::chrono::milliseconds(settings.shutdown_grace_ms));
    RunOnExitQueues();
    return passed ? 0 : 1;
  } catch (...) {
    std::fprintf(stderr, "kiv-host: %s\n", kiv::DescribeCurrentException().c_str());
    return 1;
  }
}
