// An example host: what a server process does with the library's text layer.
//
// Usage: kiv_demo [--config FILE] [--text FILE] [--chunked FILE]
//
// Configuration: loads its settings from a properties file (FILE, or examples/demo.properties)
// over built-in defaults and publishes them as the preferences; the log follows
// "logs/application/level" there, and writes its lines to the standard error stream.
//
// Text: reads UTF-8 text (FILE, or a built-in sample), reports its size in bytes and characters,
// re-encodes it to UTF-16 and back, upper-cases it, and prints the results.
//
// HTTP/1.1 chunked body: decodes a body in chunked transfer coding (FILE, or a built-in sample)
// through a chunked input stream, a text input stream and a Reader as UTF-8 lines, prints them,
// and answers each line through a Writer on a chunked output stream, printing the raw answer.
#include <kiv/kiv.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace {

const char kSample[] =
    "Grüße aus Köln! Ünïcödé text, façade, naïve café.\n"
    "Ελληνικά, Русский, 日本語.\n";

const char kChunkedSample[] =
    "1d\r\nGET /index.html HTTP/1.1\nHost\r\n"
    "17;ext=1\r\n: example.org\nÜbergrö\r\n"
    "7\r\nße: 1\n\r\n"
    "0\r\nTrailer: x\r\n\r\n";

kiv::String Utf8(const char* text) { return kiv::String(kiv::TextEncodingExp::MakeUTF8(), text); }

// The log first, so that it hears the publication of the settings; then the settings.
void Configure(const char* path) {
  kiv::LogWriterExp::Init(kiv::MTSyncIOStreamExp::Make(kiv::SyncOutputStreamExp::Make(stderr)));
  kiv::LogWriterExp::SetIdent(Utf8("kiv_demo"));
  kiv::HierHashtable defaults = kiv::HierHashtableExp::Make();
  defaults->MakePath(Utf8("logs/application/level"), 0x1FF, 0)->AddLast(Utf8("error"));
  kiv::PreferencesExp::MakePrefs(kiv::ConstHierHashtableExp::Make(defaults),
                                 kiv::SyncResourceExp::Make(Utf8(path)),
                                 kiv::TextEncodingExp::MakeUTF8());
}

// One log line at `level`.
void Log(kiv::LogLevel level, const std::string& message) {
  kiv::Writer log = kiv::LogWriterExp::Make(level);
  log->Write(message.c_str());
  log->NewLine();
}

std::string ToUtf8(const kiv::String& s) {
  kiv::String u = s->Encode(kiv::TextEncodingExp::MakeUTF8());
  return std::string(static_cast<const char*>(u->GetData()), u->ByteLength());
}

// A failure of the demo's own, with what went wrong; main prints it.
struct DemoError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Writes report what they could not do by a false result; the demo stops at the first one, so
// an answer is never cut short in silence.
void Check(bool written, const char* what) {
  if (!written) throw DemoError(std::string("could not write ") + what);
}

// Reads a whole file, or says why not (a missing file, a directory, a read error).
std::string ReadFile(const std::string& path) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) throw DemoError(path + ": is a directory");
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) throw DemoError(path + ": " + std::strerror(errno));
  std::string bytes;
  char block[16 * 1024];
  std::size_t n;
  while ((n = std::fread(block, 1, sizeof block, file)) > 0) bytes.append(block, n);
  bool failed = std::ferror(file) != 0;
  int error = errno;
  std::fclose(file);
  if (failed) throw DemoError(path + ": " + std::strerror(error));
  return bytes;
}

// Prints bytes with CR and LF made visible, so that chunk framing can be read.
void PrintRaw(const char* data, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    if (data[i] == '\r') {
      std::fputs("\\r", stdout);
    } else if (data[i] == '\n') {
      std::fputs("\\n\n", stdout);
    } else {
      std::fputc(data[i], stdout);
    }
  }
}

// Reads a chunked UTF-8 body line by line and answers each line, numbered, in a chunked UTF-8
// body. Returns the number of lines read.
int AnswerChunkedLines(const kiv::SyncInputStream& request, const kiv::SyncOutputStream& response) {
  const kiv::TextEncoding utf8 = kiv::TextEncodingExp::MakeUTF8();
  // The text input stream reads ahead, so its reads must stop at the end of each chunk.
  kiv::SyncInputStream body = kiv::ChunkedSyncIOStreamExp::MakeCapped(request);
  kiv::Reader reader = kiv::ReaderExp::Make(
      kiv::TextInputStreamExp::Make(body, kiv::BufferExp::Make(4096), utf8), 5000);
  int count = 0;
  const char* const kAnswer = "the answer";
  {
    // Each Write of the chunked stream is one chunk; a write-behind buffer in front of it makes
    // chunks of up to 4 KiB instead of one per piece of text.
    kiv::SyncOutputStream chunked = kiv::ChunkedSyncIOStreamExp::Make(response);
    kiv::Writer writer = kiv::WriterExp::Make(
        utf8, kiv::SyncOutputStreamExp::Make(chunked, kiv::BufferExp::Make(4096)));
    kiv::String line;
    while (reader->ReadLine(line)) {  // each line keeps its line feed
      std::printf("  line %d: %s", count + 1, ToUtf8(line->Trim()->Quote()).c_str());
      std::printf("\n");
      Check(writer->Write(++count) && writer->Write(": ") && writer->Write(line), kAnswer);
    }
    // An answer's date, as a host puts it in its Date header.
    Check(writer->NewLine() && writer->Write("date: ") &&
              writer->Write(kiv::DateStringExp::Make(kiv::DateExp::Make(kiv::DateExp::Now(), 0))) &&
              writer->NewLine() && writer->Write("lines: ") && writer->Write(count) &&
              writer->NewLine(),
          kAnswer);
    writer->Flush();  // a buffered stream does not flush itself on release
  }                   // releasing the chunked stream writes the last chunk, "0\r\n\r\n"
  return count;
}

void ChunkedDemo(const std::string& wire) {
  std::printf("\n== HTTP/1.1 chunked body: %zu bytes on the wire ==\n", wire.size());
  std::vector<char> in_bytes(wire.begin(), wire.end());
  kiv::SyncInputStream request = kiv::SyncInputStreamExp::Make(
      kiv::BufferExp::Make(in_bytes.data(), static_cast<unsigned>(in_bytes.size())));
  // The answer goes to a temporary file, which grows as needed, and is printed from there.
  std::FILE* file = std::tmpfile();
  if (file == nullptr) throw DemoError(std::string("temporary file: ") + std::strerror(errno));
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> closer(file, &std::fclose);
  int lines = AnswerChunkedLines(request, kiv::SyncOutputStreamExp::Make(file));
  std::string answer;
  std::rewind(file);
  char block[16 * 1024];
  for (std::size_t n; (n = std::fread(block, 1, sizeof block, file)) > 0;) answer.append(block, n);
  // The last chunk is written when the chunked stream is released, where no result can be
  // returned: check that it arrived.
  const std::string last_chunk = "0\r\n\r\n";
  if (std::ferror(file) != 0 || answer.size() < last_chunk.size() ||
      answer.compare(answer.size() - last_chunk.size(), last_chunk.size(), last_chunk) != 0) {
    throw DemoError("the answer's last chunk was not written");
  }
  Log(kiv::LogInfo, "answered " + std::to_string(lines) + " lines in " +
                        std::to_string(answer.size()) + " bytes of chunked coding");
  std::printf("answered %d lines in a chunked body of %zu bytes:\n", lines, answer.size());
  PrintRaw(answer.data(), answer.size());
}

}  // namespace

int main(int argc, char** argv) {
  kiv::InstallTerminateHandler();
  std::string config = KIV_DEMO_CONFIG;
  std::string bytes = kSample;
  std::string wire = kChunkedSample;
  std::string text_path, chunked_path;
  for (int i = 1; i < argc; ++i) {
    bool has_value = i + 1 < argc;
    if (std::strcmp(argv[i], "--config") == 0 && has_value) {
      config = argv[++i];
    } else if (std::strcmp(argv[i], "--text") == 0 && has_value) {
      text_path = argv[++i];
    } else if (std::strcmp(argv[i], "--chunked") == 0 && has_value) {
      chunked_path = argv[++i];
    } else {
      std::fprintf(stderr, "usage: kiv_demo [--config FILE] [--text FILE] [--chunked FILE]\n");
      return 2;
    }
  }

  try {
    using kiv::TextEncodingExp;
    if (!text_path.empty()) bytes = ReadFile(text_path);
    if (!chunked_path.empty()) wire = ReadFile(chunked_path);
    Configure(config.c_str());
    Log(kiv::LogInfo, "settings loaded from " + config);
    std::printf("== Strings and encodings ==\n");
    // Invalid text would only fail later with no position; say where it is wrong instead.
    kiv::TextValidation check =
        TextEncodingExp::Validate(TextEncodingExp::MakeUTF8(), bytes.data(), bytes.size());
    if (!check.valid) {
      throw DemoError("the text is not valid UTF-8 at byte " + std::to_string(check.offset) + ": " +
                      check.reason);
    }
    kiv::String text(TextEncodingExp::MakeUTF8(), bytes.data(),
                     static_cast<unsigned>(bytes.size()));
    std::printf("input: %u bytes of UTF-8, %u characters\n", text->ByteLength(), text->Length());

    kiv::String wide = text->Encode(TextEncodingExp::MakeUTF16());
    std::printf("as UTF-16: %u bytes, %u code units\n", wide->ByteLength(), wide->Length());
    kiv::String back = wide->Encode(TextEncodingExp::MakeUTF8());
    // Wide text goes to UTF-8 one 16-bit unit at a time, so characters beyond U+FFFF come back
    // as two three-byte sequences: the library has always written them that way.
    std::printf(
        "round trip UTF-8 -> UTF-16 -> UTF-8 is %s\n",
        back == text ? "exact" : "different (characters beyond U+FFFF come back as surrogates)");

    kiv::Container lines = text->Split('\n', true, 0x7FFFFFFF);
    std::printf("lines: %d\n", lines->Count());
    kiv::String first(lines->First());
    std::printf("first line, quoted: %s\n", ToUtf8(first->Quote()).c_str());
    std::printf("upper-cased:\n%s", ToUtf8(wide->ToUpper()).c_str());
    if (!bytes.empty() && bytes.back() != '\n') std::printf("\n");

    ChunkedDemo(wire);
    // Output to a closed pipe or a full disk is a failure too.
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
      throw DemoError(std::string("standard output: ") + std::strerror(errno));
    }
  } catch (const DemoError& e) {
    std::fprintf(stderr, "kiv_demo: %s\n", e.what());
    return 1;
  } catch (...) {
    std::fprintf(stderr, "kiv_demo failed: %s\n", kiv::DescribeCurrentException().c_str());
    return 1;
  }
  return 0;
}
