#include "llhttp_driver.h"

#include <stdlib.h>
#include <string.h>

#include "llhttp.h"

static const char kHead[] = "POST / HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n";

struct sink {
  struct kiv_llhttp_result* result;
  size_t body_capacity;
  size_t fields_capacity;
  int in_trailer;
};

static void append(char** data, size_t* length, size_t* capacity, const char* at, size_t n) {
  if (*length + n + 1 > *capacity) {
    *capacity = (*length + n + 1) * 2;
    *data = (char*)realloc(*data, *capacity);
  }
  memcpy(*data + *length, at, n);
  *length += n;
}

static struct sink* sink_of(llhttp_t* parser) { return (struct sink*)parser->data; }

static void field(llhttp_t* parser, const char* at, size_t n) {
  struct sink* s = sink_of(parser);
  append(&s->result->fields, &s->result->fields_length, &s->fields_capacity, at, n);
}

static int on_body(llhttp_t* parser, const char* at, size_t n) {
  struct sink* s = sink_of(parser);
  append(&s->result->body, &s->result->body_length, &s->body_capacity, at, n);
  return 0;
}

static int on_headers_complete(llhttp_t* parser) {
  sink_of(parser)->in_trailer = 1;
  return 0;
}

static int on_ext_name(llhttp_t* parser, const char* at, size_t n) {
  if (sink_of(parser)->result->fields_length == 0 ||
      sink_of(parser)->result->fields[sink_of(parser)->result->fields_length - 1] == '\n') {
    field(parser, "e ", 2);
  }
  field(parser, at, n);
  return 0;
}

static int on_ext_value(llhttp_t* parser, const char* at, size_t n) {
  struct kiv_llhttp_result* r = sink_of(parser)->result;
  if (r->fields_length > 0 && r->fields[r->fields_length - 1] == '\n') {
    r->fields_length--; /* the value follows its name on the same line */
    field(parser, "=", 1);
  }
  field(parser, at, n);
  return 0;
}

static int on_ext_done(llhttp_t* parser) {
  field(parser, "\n", 1);
  return 0;
}

static int on_header_field(llhttp_t* parser, const char* at, size_t n) {
  struct kiv_llhttp_result* r = sink_of(parser)->result;
  if (!sink_of(parser)->in_trailer) return 0;
  if (r->fields_length == 0 || r->fields[r->fields_length - 1] == '\n') field(parser, "t ", 2);
  field(parser, at, n);
  return 0;
}

static int on_header_field_complete(llhttp_t* parser) {
  if (sink_of(parser)->in_trailer) field(parser, ":", 1);
  return 0;
}

static int on_header_value(llhttp_t* parser, const char* at, size_t n) {
  if (sink_of(parser)->in_trailer) field(parser, at, n);
  return 0;
}

static int on_header_value_complete(llhttp_t* parser) {
  if (sink_of(parser)->in_trailer) field(parser, "\n", 1);
  return 0;
}

static int on_message_complete(llhttp_t* parser) {
  sink_of(parser)->result->complete = 1;
  return HPE_PAUSED;
}

void kiv_llhttp_parse(const char* body, size_t length, size_t piece,
                      struct kiv_llhttp_result* result) {
  llhttp_t parser;
  llhttp_settings_t settings;
  struct sink s;
  size_t head = sizeof kHead - 1;
  size_t offset;
  llhttp_errno_t err = HPE_OK;
  memset(result, 0, sizeof *result);
  memset(&s, 0, sizeof s);
  s.result = result;
  llhttp_settings_init(&settings);
  settings.on_body = on_body;
  settings.on_headers_complete = on_headers_complete;
  settings.on_chunk_extension_name = on_ext_name;
  settings.on_chunk_extension_value = on_ext_value;
  settings.on_chunk_extension_name_complete = on_ext_done;
  settings.on_chunk_extension_value_complete = on_ext_done;
  settings.on_header_field = on_header_field;
  settings.on_header_field_complete = on_header_field_complete;
  settings.on_header_value = on_header_value;
  settings.on_header_value_complete = on_header_value_complete;
  settings.on_message_complete = on_message_complete;
  llhttp_init(&parser, HTTP_REQUEST, &settings);
  parser.data = &s;
  if (llhttp_execute(&parser, kHead, head) != HPE_OK) {
    result->error = llhttp_get_errno(&parser);
    return;
  }
  if (piece == 0) piece = 1;
  for (offset = 0; offset < length && err == HPE_OK; offset += piece) {
    size_t n = length - offset < piece ? length - offset : piece;
    char* copy = (char*)malloc(n);
    memcpy(copy, body + offset, n);
    err = llhttp_execute(&parser, copy, n);
    if (err == HPE_PAUSED) result->end = offset + (size_t)(llhttp_get_error_pos(&parser) - copy);
    free(copy);
  }
  if (err == HPE_OK && !result->complete) err = llhttp_finish(&parser);
  if (err != HPE_OK && err != HPE_PAUSED) result->error = (int)err;
}

void kiv_llhttp_free(struct kiv_llhttp_result* result) {
  free(result->body);
  free(result->fields);
  result->body = NULL;
  result->fields = NULL;
}
