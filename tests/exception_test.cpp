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

TEST(ExceptionTextTest, NamesAndPayloads) {
  EXPECT_EQ(Utf8(IOTimeoutException().ToString()), "kiv::IOTimeoutException");
  EXPECT_EQ(Utf8(NoSuchElementException().ToString()), "kiv::NoSuchElementException");
  EXPECT_EQ(Utf8(BoundsException(42).ToString()), "kiv::BoundsException - 42");
  // Zero is a payload too; only empty text is left out.
  EXPECT_EQ(Utf8(BufferException(0).ToString()), "kiv::BufferException - 0");
  EXPECT_EQ(Utf8(InternalError(String(TextEncodingExp::MakeAscii())).ToString()),
            "kiv::InternalError");
  EXPECT_EQ(Utf8(UnknownIOException(Wide("disk é")).ToString()),
            "kiv::UnknownIOException - disk é");
  EXPECT_EQ(Utf8(UnrepresentableYearException(99999).ToString()),
            "kiv::UnrepresentableYearException - 99999");
  TimeoutException cause;
  EXPECT_EQ(Utf8(IOScheduleException(&cause).ToString()),
            "kiv::IOScheduleException - kiv::TimeoutException");
  IODeadlockException nested(nullptr);
  EXPECT_EQ(nested.What(), nullptr);
  EXPECT_EQ(Utf8(nested.ToString()), "kiv::IODeadlockException");
  EXPECT_EQ(Utf8(ResourceOSException(Wide("cannot open x"), 2).ToString()),
            "kiv::ResourceOSException - cannot open x: " + testing::SystemErrorText(2));

  MemoryException memory;
  EXPECT_STREQ(memory.what(), "bad allocation");
  EXPECT_EQ(Utf8(memory.ToString()), "kiv::MemoryException");
  BadCastException cast;
  EXPECT_STREQ(cast.what(), "bad cast");
  EXPECT_EQ(Utf8(cast.ToString()), "kiv::BadCastException");
}

TEST(ExceptionTest, FamiliesCatchTheirMembers) {
  EXPECT_THROW(throw GeneralIOException(Wide("x")), IOException);
  EXPECT_THROW(throw NoUnicodeConverterException(), DataConverterException);
  EXPECT_THROW(throw EntryMismatchException(Wide("k")), NoSuchElementException);
  EXPECT_THROW(throw UnrepresentableYearException(1), BoundsException);
  EXPECT_THROW(throw BadCastException(), std::bad_cast);
  try {
    throw KeyOutOfBoundsException(Wide("../a"));
  } catch (const HashException& e) {
    EXPECT_EQ(Utf8(e.ToString()), "kiv::KeyOutOfBoundsException - ../a");
  }
}

TEST(ExceptionTest, CloneRethrowAndCopiesKeepPayloadButNotCount) {
  DataConverterBufferException original(128);
  const Exception& base = original;
  Ref<Exception> kept(base.Clone());
  EXPECT_EQ(Utf8(kept->ToString()), "kiv::DataConverterBufferException - 128");
  try {
    kept->Rethrow();
    FAIL();
  } catch (const DataConverterBufferException& e) {
    EXPECT_EQ(e.What(), 128);
  }
  // A copy of a counted exception is a new object: holding it does not touch the original.
  Ref<Exception> held(kept.Get());
  Unimplemented a(Wide("a"));
  Unimplemented b(Wide("b"));
  a = b;
  EXPECT_EQ(Utf8(a.What()), "b");
  ExceptionWhat w(&a);
  ExceptionWhat v(nullptr);
  v = w;
  ASSERT_NE(v.What(), nullptr);
  EXPECT_NE(v.What(), w.What());
  EXPECT_EQ(Utf8(v.What()->ToString()), "kiv::Unimplemented - b");
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
