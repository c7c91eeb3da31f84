// The host checking itself: a few requests against a running server, for CI.
#ifndef KIV_HOST_SELFTEST_H_
#define KIV_HOST_SELFTEST_H_

namespace kiv_host {

// Sends the checks to 127.0.0.1:`port` and prints one line per check; true when all passed.
bool RunSelfTest(int port);

}  // namespace kiv_host

#endif  // KIV_HOST_SELFTEST_H_
