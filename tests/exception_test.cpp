#include <kiv/encodings.h>
#include <kiv/exception.h>

#include <gtest/gtest.h>

#include <sys/stat.h>
#if !defined(_WIN32)
#include <unistd.h>
#endif
#include <new>
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

// One exception made with a sample payload: its text, its bases, and a copy, an assignment over
// an exception with another payload, a clone and a rethrow, each keeping the most derived type
// and the payload.
template <class C, class... Family, class... Bases>
void ExpectException(const char* name, Types<Family...>, Types<Bases...>, const C& made,
                     const C& other, const std::string& payload) {
  SCOPED_TRACE(name);
  const std::string text = std::string("kiv::") + name + (payload.empty() ? "" : " - " + payload);
  auto has_bases = [](const Exception& e) {
    return (true && ... && (dynamic_cast<const Family*>(&e) != nullptr)) &&
           (true && ... && (dynamic_cast<const Bases*>(&e) != nullptr));
  };
  EXPECT_EQ(Utf8(made.ToString()), text);
  EXPECT_TRUE(has_bases(made));

  const Exception& base = made;
  Ref<Exception> clone(base.Clone());
  const Exception& cloned = *clone.Get();
  EXPECT_TRUE(typeid(cloned) == typeid(C));
  EXPECT_TRUE(has_bases(cloned));
  EXPECT_EQ(Utf8(clone->ToString()), text);
  // A copy of a held exception starts a count of its own (a copied count would leak it).
  Ref<Exception> second(clone->Clone());
  EXPECT_EQ(Utf8(second->ToString()), text);
  try {
    base.Rethrow();
    ADD_FAILURE() << "nothing thrown";
  } catch (const C& thrown) {
    EXPECT_TRUE(typeid(thrown) == typeid(C));
    EXPECT_EQ(Utf8(thrown.ToString()), text);
  } catch (...) {
    ADD_FAILURE() << "thrown as another type";
  }

  C copy(made);
  EXPECT_EQ(Utf8(copy.ToString()), text);
  C assigned(other);
  assigned = made;
  EXPECT_EQ(Utf8(assigned.ToString()), text);
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

TEST(ExceptionTest, EmptyPayloadsAndStandardTexts) {
  // Zero is a payload too; only empty text, a missing cause or no error code is left out.
  EXPECT_EQ(Utf8(BufferException(0).ToString()), "kiv::BufferException - 0");
  EXPECT_EQ(Utf8(InternalError(String(TextEncodingExp::MakeAscii())).ToString()),
            "kiv::InternalError");
  IODeadlockException nested(nullptr);
  EXPECT_EQ(nested.What(), nullptr);
  EXPECT_EQ(Utf8(nested.ToString()), "kiv::IODeadlockException");

  EXPECT_STREQ(MemoryException().what(), "bad allocation");
  EXPECT_STREQ(BadCastException().what(), "bad cast");
}

TEST(ExceptionTest, NestedPayloadIsAPrivateClone) {
  Unimplemented a(Wide("a"));
  ExceptionWhat w(&a);
  ExceptionWhat v(nullptr);
  v = w;
  ASSERT_NE(v.What(), nullptr);
  EXPECT_NE(v.What(), w.What());
  EXPECT_NE(v.What(), &a);
  EXPECT_EQ(Utf8(v.What()->ToString()), "kiv::Unimplemented - a");
}

TEST(AssertionTest, PrintsWhenMadeAndThrows) {
  ::testing::internal::CaptureStderr();
  AssertPrint(nullptr, nullptr, 7);
  EXPECT_EQ(
      ::testing::internal::GetCapturedStderr(),
      "ASSERTION FAILED - \"<null expression string>\"\n file \"<null file name>\"; line 7\n");

  ::testing::internal::CaptureStderr();
  try {
    BoundsAssertion("i < n", "f.cpp", 3);
  } catch (const AssertException& e) {
    EXPECT_STREQ(e.What(), "i < n");
    EXPECT_EQ(e.Line(), 3u);
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "kiv::AssertException ASSERTION FAILED - \"i < n\"\n file \"f.cpp\"; line 3\n");

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

TEST(TraceTest, PrintObjPassesClassNameAndObject) {
  InternalError e(Wide("x"));
  ::testing::internal::CaptureStderr();
  TracePrintObj("%s %s\n", "obj:", &e);
  TracePrintObj("%s %s\n", "none:", nullptr);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "obj: kiv::InternalError\nnone: NULL\n");
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
  // A directory nobody may write to: the record is lost, nothing is thrown.
  testing::ScopedTempDir locked;
  chmod(locked.path().c_str(), 0500);
  StaticConstructionException("kiv::Holder", false);
  chmod(locked.path().c_str(), 0700);
  // Root writes anyway; the point there is that nothing throws.
  if (getuid() != 0) {
    EXPECT_EQ(testing::ReadTextFile("static_const_errs.txt"), "");
  }
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
  EXPECT_EQ(describe([] { throw BoundsException(42); }), "kiv::BoundsException - 42");
  EXPECT_EQ(describe([] { throw MemoryException(); }), "kiv::MemoryException");
  EXPECT_EQ(describe([] { throw std::out_of_range("vector"); }), "std::out_of_range: vector");
  EXPECT_EQ(describe([] { throw 7; }), "unknown exception");
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(describe([] { throw AssertException("x != 0", "h.cpp", 12); }),
            "kiv::AssertException: \"x != 0\" at h.cpp:12");
  ::testing::internal::GetCapturedStderr();
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
