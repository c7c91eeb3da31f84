// Uses the library from outside: strings, the registry's built-in encodings (which must be
// registered in a static link too), a table, and the version query.
#include <kiv/kiv.h>

#include <cstdio>
#include <cstring>

int main() {
  kiv::String name(kiv::TextEncodingExp::MakeAscii(), "utf-8");
  kiv::TextEncoding utf8 = kiv::TextEncodingExp::Make(name);
  if (!utf8) {
    std::puts("the built-in encodings are not registered");
    return 1;
  }
  kiv::String text(utf8, "Grüße");
  kiv::HierHashtable tree = kiv::HierHashtableExp::Make();
  tree->MakePath(kiv::String(utf8, "a/b"), 0x1FF, 0)->AddLast(text);
  const unsigned length = kiv::String(tree->Get(kiv::String(utf8, "a/b"))->First())->Length();
  if (length != 5 || std::strcmp(kiv::GetVersionString(), KIV_VERSION_STRING) != 0) {
    std::puts("unexpected results");
    return 1;
  }
  std::printf("kiv common %s: ok\n", kiv::GetVersionString());
  return 0;
}
