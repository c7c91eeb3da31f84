/* A C interface to llhttp for the tests: parses one request whose body is in chunked coding and
 * reports what llhttp made of it. Kept in C because llhttp is C and its header is not ours to
 * include in C++ tests. */
#ifndef KIV_TESTS_SUPPORT_LLHTTP_DRIVER_H_
#define KIV_TESTS_SUPPORT_LLHTTP_DRIVER_H_

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

struct kiv_llhttp_result {
  char* body; /* the decoded data, malloc'd; free with kiv_llhttp_free */
  size_t body_length;
  /* The framing fields, malloc'd: "e name=value\n" per chunk extension (value raw, quotes and
   * all; "e name\n" without one) and "t name:value\n" per trailer field. */
  char* fields;
  size_t fields_length;
  size_t end;   /* offset in the coded body just after the message, when complete */
  int complete; /* 1 when the message completed */
  int error;    /* llhttp's error number, 0 when none */
};

/* Parses "POST / HTTP/1.1", a Host and a Transfer-Encoding: chunked header and then the `length`
 * bytes of `body`, handed to llhttp in pieces of `piece` bytes (each its own buffer), and stops
 * at the end of the message; a body that stops short is finished as at the end of the
 * connection. */
void kiv_llhttp_parse(const char* body, size_t length, size_t piece,
                      struct kiv_llhttp_result* result);
void kiv_llhttp_free(struct kiv_llhttp_result* result);

#ifdef __cplusplus
}
#endif

#endif /* KIV_TESTS_SUPPORT_LLHTTP_DRIVER_H_ */
