#include <kiv/containers.h>
#include <kiv/exception.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <new>
#include <vector>

namespace {

// While set, array allocations on this thread fail: the vector's growth is the only array
// allocation the tests make through the library.
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

// A counted element that knows how many of its kind are alive.
class Item : public RefCount {
 public:
  explicit Item(int value) : value(value) { ++live; }
  ~Item() override { --live; }
  const int value;
  static inline int live = 0;
};

int V(const Object& o) { return dynamic_cast<const Item*>(o.Get())->value; }

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
  try {
    f();
  } catch (const BoundsException& e) {
    return e.What();
  }
  ADD_FAILURE() << "no BoundsException";
  return 0;
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
  EXPECT_THROW(c->First(), NoSuchElementException);
  EXPECT_THROW(c->Last(), NoSuchElementException);
  EXPECT_THROW(c->RemoveFirst(), NoSuchElementException);
  EXPECT_THROW(c->RemoveLast(), NoSuchElementException);
  EXPECT_EQ(BoundsIndex([&] { c->ElementAt(-1); }), -1);

  c->AddLast(new Item(2));
  c->AddFirst(new Item(1));
  c->AddLast(new Item(3));
  EXPECT_EQ(Contents(c), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(V(c->GetElement(1)), 2);
  c->ElementAt(1) = new Item(9);  // a reference into the container
  EXPECT_EQ(V(c->GetElement(1)), 9);
  EXPECT_EQ(BoundsIndex([&] { c->GetElement(3); }), 3);
  EXPECT_EQ(BoundsIndex([&] { c->ElementAt(-2); }), -2);
  EXPECT_EQ(V(c->RemoveFirst()), 1);
  EXPECT_EQ(V(c->RemoveLast()), 3);
  EXPECT_EQ(V(c->First()), 9);
  EXPECT_EQ(V(c->Last()), 9);

  // Dropping a container with elements in it releases them (TearDown checks).
  Filled(c, 4);
  c->RemoveAll();
  EXPECT_EQ(c->Count(), 0);
  Filled(c, 4);
}

TEST_P(BothKinds, EnumerationsSeeLaterAppends) {
  Container c = Make();
  Enumeration empty = c->Elements();
  Filled(c, 2);
  Enumeration e = c->Elements();
  EXPECT_EQ(V(e->NextElement()), 1);
  c->AddLast(new Item(3));
  EXPECT_EQ(V(e->NextElement()), 2);
  EXPECT_TRUE(e->HasMoreElements());
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
    EXPECT_THROW(empty->NextElement(), NoSuchElementException);
  }
}

static_assert(std::input_iterator<ElementIterator>);

TEST_P(BothKinds, RangeForWalksOnePassOfAnEnumeration) {
  Container c = Make();
  for (const Object& element : c) ADD_FAILURE() << V(element);
  Filled(c, 3);
  // An enumeration already started goes on from where it stands.
  Enumeration e = c->Elements();
  static_cast<void>(e->NextElement());
  std::vector<int> rest;
  for (const Object& element : e) rest.push_back(V(element));
  EXPECT_EQ(rest, (std::vector<int>{2, 3}));
  EXPECT_FALSE(e->HasMoreElements());
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
  EXPECT_EQ(Contents(c), (std::vector<int>{1, 2, 5}));

  // Reversed, "forward" means towards the first element.
  it->SetForward(false);
  EXPECT_EQ(V(it->Remove(true)), 2);
  EXPECT_EQ(V(it->Current()), 1);
  EXPECT_EQ(V(it->Remove(false)), 1);
  EXPECT_EQ(V(it->Current()), 5);

  it->SetForward(true);
  EXPECT_EQ(V(it->Remove(true)), 5);  // the last element: the iterator is left beyond the end
  EXPECT_FALSE(it->IsValid());
  EXPECT_EQ(c->Count(), 0);
}

TEST(List, IteratorWalksPastBothEndsAndBack) {
  Container c = Filled(ContainerExp::MakeList(), 5);
  Ref<IteratorItf> it = c->IteratorAtLast();
  it->Forward(3);
  EXPECT_FALSE(it->IsValid());
  EXPECT_EQ(BoundsIndex([&] { it->Current(); }), 8);  // overshoot + count
  Ref<IteratorItf> copy = it->Clone();
  it->Back(3);
  EXPECT_EQ(V(it->Current()), 5);
  copy->Back(4);
  EXPECT_EQ(V(copy->Current()), 4);

  it = c->IteratorAt(-2);
  EXPECT_EQ(BoundsIndex([&] { it->CurrentRef(); }), -2);
  it->Forward(2);
  EXPECT_EQ(V(it->Current()), 1);
  it->Forward(-1);  // a negative step goes the other way
  EXPECT_EQ(BoundsIndex([&] { it->Current(); }), -1);
  it->Back(-3);
  EXPECT_EQ(V(it->Current()), 3);
  it->Forward(4);  // falls off on the third step with one still to go
  EXPECT_EQ(BoundsIndex([&] { it->Current(); }), 7);

  // Beyond the end of the reversed direction is before the first cell.
  it = c->IteratorAt(6);
  EXPECT_TRUE(it->SetForward(false));
  EXPECT_FALSE(it->SetForward(false));
  it->Back(2);
  EXPECT_EQ(V(it->Current()), 1);
  it->Back(4);
  EXPECT_EQ(V(it->Current()), 5);
  it->Forward(1);
  EXPECT_EQ(V(it->Current()), 4);
  it->Forward(4);
  EXPECT_FALSE(it->IsValid());
  it->Back(1);
  EXPECT_EQ(V(it->Current()), 1);

  it = ContainerExp::MakeList()->IteratorAtFirst();
  EXPECT_FALSE(it->IsValid());
  EXPECT_THROW(it->Current(), NoSuchElementException);
}

TEST(Vector, IteratorIsPlainIndexArithmetic) {
  Container c = Filled(ContainerExp::MakeVector(), 3);
  Ref<IteratorItf> it = c->IteratorAt(10);
  EXPECT_FALSE(it->IsValid());
  EXPECT_EQ(BoundsIndex([&] { it->Current(); }), 10);
  it->Back(8);
  EXPECT_EQ(V(it->Current()), 3);
  it->SetForward(false);
  it->Forward(2);
  EXPECT_EQ(V(it->CurrentRef()), 1);
  it->Forward(1);
  EXPECT_EQ(BoundsIndex([&] { it->Current(); }), -1);
  EXPECT_FALSE(ContainerExp::MakeVector()->IteratorAtLast()->IsValid());
  EXPECT_EQ(V(c->IteratorAtLast()->Current()), 3);
}

TEST(List, InsertionFollowsListOrderWhateverTheDirection) {
  Container c = Filled(ContainerExp::MakeList(), 3);
  Ref<IteratorItf> it = c->IteratorAt(1);
  it->SetForward(false);
  EXPECT_TRUE(it->InsertBefore(new Item(10)));
  EXPECT_TRUE(it->InsertAfter(new Item(20)));
  EXPECT_EQ(Contents(c), (std::vector<int>{1, 10, 2, 20, 3}));
  EXPECT_EQ(V(it->Current()), 2);
  it = c->IteratorAtFirst();
  it->InsertBefore(new Item(0));  // at an end: AddFirst
  c->IteratorAtLast()->InsertAfter(new Item(4));
  EXPECT_EQ(Contents(c), (std::vector<int>{0, 1, 10, 2, 20, 3, 4}));
  it->Forward(20);
  EXPECT_THROW(it->InsertAfter(new Item(5)), BoundsException);

  Container empty = ContainerExp::MakeList();
  EXPECT_TRUE(empty->IteratorAtFirst()->InsertBefore(new Item(7)));
  EXPECT_TRUE(empty->IteratorAt(0)->InsertAfter(new Item(8)));
  EXPECT_EQ(Contents(empty), (std::vector<int>{7, 8}));
}

TEST(Vector, InsertionFollowsTheDirectionOfTravel) {
  Container c = Filled(ContainerExp::MakeVector(), 3);
  Ref<IteratorItf> it = c->IteratorAt(1);
  EXPECT_TRUE(it->InsertBefore(new Item(10)));
  EXPECT_TRUE(it->InsertAfter(new Item(20)));
  EXPECT_EQ(Contents(c), (std::vector<int>{1, 10, 2, 20, 3}));
  EXPECT_EQ(V(it->Current()), 2);
  it->SetForward(false);
  EXPECT_TRUE(it->InsertBefore(new Item(11)));  // lands at index + 1
  EXPECT_TRUE(it->InsertAfter(new Item(9)));
  EXPECT_EQ(Contents(c), (std::vector<int>{1, 10, 9, 2, 11, 20, 3}));
  EXPECT_EQ(V(it->Current()), 2);
  EXPECT_EQ(BoundsIndex([&] { c->IteratorAt(7)->InsertBefore(new Item(0)); }), 7);
  EXPECT_EQ(
      BoundsIndex([&] { ContainerExp::MakeVector()->IteratorAtFirst()->InsertAfter(new Item(0)); }),
      0);
}

TEST(Vector, GrowsBy64AndFailsCleanlyWithoutMemory) {
#if defined(_WIN32)
  GTEST_SKIP() << "a program's operator new[] does not replace the one a DLL calls";
#endif
  struct Failing {
    Failing() { fail_array_new = true; }
    ~Failing() { fail_array_new = false; }
  };
  Container fresh = ContainerExp::MakeVector();
  Container empty = ContainerExp::MakeVector(0);
  Container grown = ContainerExp::MakeVector(0);
  EXPECT_TRUE(grown->AddLast(new Item(0)));
  {
    Failing failing;
    EXPECT_FALSE(empty->AddLast(new Item(0)));
    EXPECT_EQ(empty->Count(), 0);
    for (int i = 1; i < 64; ++i) ASSERT_TRUE(grown->AddFirst(new Item(i)));
    for (int i = 0; i < 64; ++i) ASSERT_TRUE(fresh->AddLast(new Item(i)));
    EXPECT_FALSE(fresh->AddFirst(new Item(-1)));
    EXPECT_FALSE(grown->AddLast(new Item(-1)));
    EXPECT_FALSE(fresh->IteratorAt(3)->InsertAfter(new Item(-1)));
  }
  EXPECT_EQ(fresh->Count(), 64);
  EXPECT_EQ(V(fresh->First()), 0);
  EXPECT_EQ(V(fresh->Last()), 63);
  for (int i = 64; i < 200; ++i) ASSERT_TRUE(fresh->AddLast(new Item(i)));
  std::vector<int> expected;
  for (int i = 0; i < 200; ++i) expected.push_back(i);
  EXPECT_EQ(Contents(fresh), expected);
  EXPECT_EQ(V(fresh->RemoveFirst()), 0);
  EXPECT_EQ(V(fresh->GetElement(0)), 1);
}

}  // namespace kiv
