#include <sys/stat.h>
#if !defined(_WIN32)
#include <unistd.h>
#endif
#include <stdexcept>
#include <string>
#include <thread>
#include <typeinfo>

#include "support/test_support.h"

namespace kiv {
namespace {

using testing::Utf8;
using testing::Wide;

template <class... T>
struct Types {};

// One exception made with a sample payload: its text, its bases, and a clone, a clone of that
// held clone (a copied count would leak it), a copy assigned over an exception with another
// payload and a rethrow, each keeping the most derived type and the payload.
template <class C, class... Family, class... Bases>
void ExpectException(const char* name, Types<Family...>, Types<Bases...>, const C& made,
                     const C& other, const std::string& payload) {
  SCOPED_TRACE(name);
  const std::string text = std::string("kiv::") + name + (payload.empty() ? "" : " - " + payload);
  EXPECT_TRUE((true && ... && (dynamic_cast<const Family*>(&made) != nullptr)) &&
              (true && ... && (dynamic_cast<const Bases*>(&made) != nullptr)));
  Ref<Exception> clone(made.Clone());
  Ref<Exception> second(clone->Clone());
  C copy(made), assigned(other);
  assigned = copy;
  try {
    made.Rethrow();
    ADD_FAILURE() << "nothing thrown";
  } catch (const C& thrown) {
    for (const Exception* e : std::initializer_list<const Exception*>{
             &made, clone.Get(), second.Get(), &assigned, &thrown}) {
      EXPECT_TRUE(typeid(*e) == typeid(C));
      EXPECT_EQ(Utf8(e->ToString()), text);
    }
  }
}

TEST(ExceptionTest, EveryListedClass) {
  TimeoutException cause;
  // For each kind of payload: the exception checked, another to assign over, the payload's text.
#define KIV_SAMPLE_None(C) C(), C(), ""
#define KIV_SAMPLE_String(C) C(Wide("disk é")), C(Wide("other")), "disk é"
#define KIV_SAMPLE_Int(C) C(-42), C(7), "-42"
#define KIV_SAMPLE_Nested(C) C(&cause), C(nullptr), "kiv::TimeoutException"
#define KIV_SAMPLE_OSError(C) \
  C(Wide("cannot open x"), 2), C(Wide("y"), 0), "cannot open x: " + testing::SystemErrorText(2)
#define KIV_EXCEPTION(C, Family, Payload, Text, ...) \
  ExpectException(#C, Types<Family>(), Types<__VA_ARGS__>(), KIV_SAMPLE_##Payload(C));
#define KIV_STD_EXCEPTION(C, StdBase) \
  ExpectException(#C, Types<Exception>(), Types<StdBase>(), KIV_SAMPLE_None(C));
#include <kiv/exceptions.def>
}

TEST(ExceptionTest, EmptyPayloadsStandardTextsAndNestedCopies) {
  // Zero is a payload too; only empty text, a missing cause or no error code is left out.
  EXPECT_EQ(Utf8(BufferException(0).ToString()), "kiv::BufferException - 0");
  EXPECT_EQ(Utf8(InternalError(Wide("")).ToString()), "kiv::InternalError");
  EXPECT_EQ(Utf8(IODeadlockException(nullptr).ToString()), "kiv::IODeadlockException");
  EXPECT_STREQ(MemoryException().what(), "bad allocation");
  EXPECT_STREQ(BadCastException().what(), "bad cast");
  // A nested payload is a private clone, also after assignment.
  Unimplemented a(Wide("a"));
  ExceptionWhat w(&a);
  ExceptionWhat v(nullptr);
  v = w;
  ASSERT_NE(v.What(), nullptr);
  EXPECT_NE(v.What(), w.What());
  EXPECT_NE(w.What(), &a);
  EXPECT_EQ(Utf8(v.What()->ToString()), "kiv::Unimplemented - a");
}

TEST(AssertionTest, PrintsWhenMadeAndThrows) {
  ::testing::internal::CaptureStderr();
  AssertPrint(nullptr, nullptr, 7);
  try {
    BoundsAssertion("i < n", "f.cpp", 3);
  } catch (const AssertException& e) {
    EXPECT_STREQ(e.What(), "i < n");
    EXPECT_EQ(e.Line(), 3u);
    EXPECT_EQ(DescribeCurrentException(), "kiv::AssertException: \"i < n\" at f.cpp:3");
  }
  InternalError e(Wide("x"));
  TracePrintObj("%s %s\n", "obj:", &e);
  TracePrintObj("%s %s\n", "none:", nullptr);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "ASSERTION FAILED - \"<null expression string>\"\n file \"<null file name>\"; line 7\n"
            "kiv::AssertException ASSERTION FAILED - \"i < n\"\n file \"f.cpp\"; line 3\n"
            "obj: kiv::InternalError\nnone: NULL\n");
  ::testing::internal::CaptureStderr();
  try {
    NullPointerAssertion("class kiv::StringItf *", "g.cpp", 9);
  } catch (const NullPointerAssertException& e) {
    NullPointerAssertException copy = e;
    EXPECT_STREQ(copy.What(), "kiv::StringItf");
    EXPECT_NE(copy.What(), e.What());
  }
  ::testing::internal::GetCapturedStderr();
}

TEST(StaticReporterTest, AppendsRecordsAndSurvivesUnwritableDirectory) {
  testing::ScopedTempDir dir;
  StaticDestructionException("kiv::Holder");
  StaticDestructionException("kiv::Holder", BoundsException(5));
  StaticConstructionException("kiv::Holder", false);
  ::testing::internal::CaptureStderr();
  AssertException assertion("x != 0", "h.cpp", 12);
  ::testing::internal::GetCapturedStderr();
  EXPECT_THROW(StaticConstructionException("kiv::Holder", assertion, false, true), AssertException);
  StaticConstructionException("kiv::Holder", TimeoutException(), false, false);
  EXPECT_EQ(testing::ReadTextFile("static_destr_errs.txt"),
            "static destruction exception within kiv::Holder: type unknown\n"
            "static destruction exception within kiv::Holder: kiv::BoundsException - 5\n");
  EXPECT_EQ(testing::ReadTextFile("static_const_errs.txt"),
            "static construction exception within kiv::Holder: type unknown.\n"
            "static construction assertion failed within kiv::Holder: x != 0\n"
            "\tline: 12, file: \"h.cpp\"\n"
            "static construction exception within kiv::Holder: kiv::TimeoutException\n");
#if !defined(_WIN32)  // Windows has no mode bits that keep the owner out of a directory.
  // A directory nobody but root may write to: the record is lost, nothing is thrown.
  testing::ScopedTempDir locked;
  chmod(locked.path().c_str(), 0500);
  StaticConstructionException("kiv::Holder", false);
  chmod(locked.path().c_str(), 0700);
  EXPECT_TRUE(getuid() == 0 || testing::ReadTextFile("static_const_errs.txt").empty());
#endif
}

TEST(DescribeCurrentException, NamesEveryKindOfException) {
  auto describe = [](auto&& thrower) {
    try {
      thrower();
    } catch (...) {
      return DescribeCurrentException();
    }
    return std::string("nothing thrown");
  };
  EXPECT_EQ(describe([] { throw std::out_of_range("vector"); }), "std::out_of_range: vector");
  EXPECT_EQ(describe([] { throw 7; }), "unknown exception");
  EXPECT_EQ(DescribeCurrentException(), "no exception");
  EXPECT_DEATH(
      {
        InstallTerminateHandler();
        std::thread([] { throw GeneralIOException(Wide("broken pipe")); }).join();
      },
      "terminate called after throwing kiv::GeneralIOException - broken pipe");
}

}  // namespace
}  // namespace kiv
