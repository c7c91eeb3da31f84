#include <kiv/containers.h>
#include <kiv/exception.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <new>
#include <vector>

#include "support/test_support.h"

namespace {

// While set, array allocations on this thread fail (the vector's growth is the only one here).
thread_local bool fail_array_new = false;

}  // namespace

// Every unaligned array form is replaced, so that each allocation meets its own deallocation.
void* operator new[](std::size_t size) {
  if (fail_array_new) throw std::bad_alloc();
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return fail_array_new ? nullptr : std::malloc(size == 0 ? 1 : size);
}
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }

namespace kiv {

using testing::Item;
using testing::V;

std::vector<int> Contents(const Container& c) {
  std::vector<int> out;
  for (const Object& element : c) out.push_back(V(element));
  return out;
}

Container Filled(Container c, int n) {
  for (int i = 1; i <= n; ++i) EXPECT_TRUE(c->AddLast(new Item(i)));
  return c;
}

template <class F>
std::int64_t BoundsIndex(F f) {
  return testing::ThrownWhat<BoundsException>(f);
}

class BothKinds : public ::testing::TestWithParam<bool> {
 protected:
  Container Make() { return GetParam() ? ContainerExp::MakeVector() : ContainerExp::MakeList(); }
  void TearDown() override { EXPECT_EQ(Item::live, 0); }
};

INSTANTIATE_TEST_SUITE_P(Containers, BothKinds, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Vector" : "List"; });

TEST_P(BothKinds, EndsIndexesAndEmptiness) {
  Container c = Make();
  EXPECT_THROW(c->ElementAt(0), NoSuchElementException);
  EXPECT_THROW(c->RemoveLast(), NoSuchElementException);
  EXPECT_EQ(BoundsIndex([&] { c->ElementAt(-1); }), -1);
  c->AddLast(new Item(2));
  c->AddFirst(new Item(1));
  c->AddLast(new Item(3));
  c->ElementAt(1) = new Item(9);  // a reference into the container
  EXPECT_EQ(Contents(c), (std::vector<int>{1, 9, 3}));
  EXPECT_EQ(BoundsIndex([&] { c->GetElement(3); }), 3);
  EXPECT_EQ(V(c->RemoveFirst()), 1);
  EXPECT_EQ(V(c->RemoveLast()), 3);
  Filled(c, 4);  // dropped with elements in it, it releases them (TearDown checks)
}

TEST_P(BothKinds, EnumerationsSeeLaterAppends) {
  Container c = Make();
  Enumeration empty = c->Elements();
  Filled(c, 2);
  Enumeration e = c->Elements();
  EXPECT_EQ(V(e->NextElement()), 1);
  c->AddLast(new Item(3));
  EXPECT_EQ(V(e->NextElement()), 2);
  EXPECT_EQ(V(e->NextElement()), 3);
  EXPECT_FALSE(e->HasMoreElements());
  if (GetParam()) {
    // The vector's enumeration is index based and fails as index access does.
    EXPECT_THROW(e->NextElement(), BoundsException);
    EXPECT_TRUE(empty->HasMoreElements());
  } else {
    // The list's walks off its last cell into a null handle; one made empty stays empty.
    EXPECT_THROW(e->NextElement(), NullPointerException);
    EXPECT_FALSE(empty->HasMoreElements());
  }
}

static_assert(std::input_iterator<ElementIterator>);

TEST_P(BothKinds, RangeForWalksOnePassOfAnEnumeration) {
  Container c = Filled(Make(), 3);
  // An enumeration already started goes on from where it stands.
  Enumeration e = c->Elements();
  static_cast<void>(e->NextElement());
  std::vector<int> rest;
  for (const Object& element : e) rest.push_back(V(element));
  EXPECT_EQ(rest, (std::vector<int>{2, 3}));
  c->RemoveAll();  // the walk's references are gone with it (TearDown checks)
  EXPECT_THROW(for (const Object& element
                    : Container()) static_cast<void>(element),
               NullPointerException);
}

TEST_P(BothKinds, RemoveThroughIteratorInBothDirections) {
  Container c = Filled(Make(), 5);
  Ref<IteratorItf> it = c->IteratorAt(2);
  EXPECT_EQ(V(it->Remove(true)), 3);
  EXPECT_EQ(V(it->Current()), 4);
  EXPECT_EQ(V(it->Remove(false)), 4);
  EXPECT_EQ(V(it->Current()), 2);
  // Reversed, "forward" means towards the first element.
  it->SetForward(false);
  EXPECT_EQ(V(it->Remove(true)), 2);
  EXPECT_EQ(V(it->Current()), 1);
  EXPECT_EQ(V(it->Remove(false)), 1);  // and the other way, towards the last
  EXPECT_EQ(V(it->Remove(false)), 5);  // the last element: the iterator is left beyond the end
  EXPECT_FALSE(it->IsValid());
}

// Beyond the end a list iterator's BoundsException carries overshoot + count, before the start
// the negative overshoot.
TEST(List, IteratorWalksPastBothEndsAndBack) {
  Container c = Filled(ContainerExp::MakeList(), 5);
  Ref<IteratorItf> it = c->IteratorAtLast();
  it->Forward(3);
  EXPECT_EQ(BoundsIndex([&] { it->Current(); }), 8);
  Ref<IteratorItf> copy = it->Clone();
  copy->Back(4);
  EXPECT_EQ(V(copy->Current()), 4);
  it = c->IteratorAt(-2);
  EXPECT_EQ(BoundsIndex([&] { it->CurrentRef(); }), -2);
  it->Back(-5);    // a negative step goes the other way, here onto 4
  it->Forward(3);  // falls off on the second step with one still to go
  EXPECT_EQ(BoundsIndex([&] { it->Current(); }), 7);
  // Beyond the end of the reversed direction is before the first cell.
  it = c->IteratorAt(6);
  EXPECT_TRUE(it->SetForward(false));
  it->Back(2);
  EXPECT_EQ(V(it->Current()), 1);
  EXPECT_THROW(ContainerExp::MakeList()->IteratorAtFirst()->Current(), NoSuchElementException);
}

TEST(Vector, IteratorIsPlainIndexArithmetic) {
  Container c = Filled(ContainerExp::MakeVector(), 3);
  Ref<IteratorItf> it = c->IteratorAt(10);
  EXPECT_EQ(BoundsIndex([&] { it->Current(); }), 10);
  it->Back(8);
  EXPECT_EQ(V(it->Current()), 3);
  it->SetForward(false);
  it->Forward(2);
  EXPECT_EQ(V(it->CurrentRef()), 1);
  it->Forward(1);
  EXPECT_EQ(BoundsIndex([&] { it->Current(); }), -1);
}

// Inserting next to the current element: a list in its own order, a vector in the direction of
// travel.
TEST_P(BothKinds, InsertionNextToTheCurrentElement) {
  Container c = Filled(Make(), 3);
  Ref<IteratorItf> it = c->IteratorAt(1);
  EXPECT_TRUE(it->InsertBefore(new Item(10)));
  EXPECT_TRUE(it->InsertAfter(new Item(20)));
  it->SetForward(false);
  EXPECT_TRUE(it->InsertBefore(new Item(11)));
  EXPECT_TRUE(it->InsertAfter(new Item(9)));
  EXPECT_EQ(V(it->Current()), 2);
  c->IteratorAtFirst()->InsertBefore(new Item(0));
  c->IteratorAtLast()->InsertAfter(new Item(4));
  EXPECT_EQ(Contents(c), (GetParam() ? std::vector<int>{0, 1, 10, 9, 2, 11, 20, 3, 4}
                                     : std::vector<int>{0, 1, 10, 11, 2, 9, 20, 3, 4}));
  EXPECT_THROW(c->IteratorAt(20)->InsertBefore(new Item(5)), BoundsException);
  Container empty = Make();
  if (GetParam()) {
    EXPECT_EQ(BoundsIndex([&] { empty->IteratorAtFirst()->InsertAfter(new Item(0)); }), 0);
  } else {
    EXPECT_TRUE(empty->IteratorAtFirst()->InsertBefore(new Item(7)));
    EXPECT_EQ(Contents(empty), (std::vector<int>{7}));
  }
}

TEST(Vector, GrowsBy64AndFailsCleanlyWithoutMemory) {
#if defined(_WIN32)
  GTEST_SKIP() << "a program's operator new[] does not replace the one a DLL calls";
#endif
  Container grown = Filled(ContainerExp::MakeVector(0), 1);
  fail_array_new = true;
  for (int i = 2; i <= 64; ++i) EXPECT_TRUE(grown->AddFirst(new Item(i)));
  EXPECT_FALSE(grown->AddLast(new Item(0)));
  EXPECT_FALSE(grown->IteratorAt(3)->InsertAfter(new Item(0)));
  fail_array_new = false;
  for (int i = 65; i <= 200; ++i) EXPECT_TRUE(grown->AddFirst(new Item(i)));
  EXPECT_EQ(grown->Count(), 200);
  for (int i = 0; i < 200; ++i) EXPECT_EQ(V(grown->GetElement(i)), 200 - i);
}

}  // namespace kiv
