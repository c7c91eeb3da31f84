#include "platform/critical_section.h"

#include <new>

#include "platform/win32/windows_names.h"

namespace kiv::platform {

// A CRITICAL_SECTION is re-entrant by itself: the owning thread may enter again, and each entry
// needs its leave.
static CRITICAL_SECTION* Section(unsigned char* storage) noexcept {
  return std::launder(reinterpret_cast<CRITICAL_SECTION*>(storage));
}

CriticalSection::CriticalSection() noexcept {
  static_assert(sizeof(CRITICAL_SECTION) <= kStorageSize, "CRITICAL_SECTION does not fit");
  static_assert(alignof(CRITICAL_SECTION) <= alignof(std::max_align_t),
                "CRITICAL_SECTION is over-aligned");
  ::InitializeCriticalSection(new (storage_) CRITICAL_SECTION);
}

CriticalSection::~CriticalSection() { ::DeleteCriticalSection(Section(storage_)); }

void CriticalSection::Enter() noexcept { ::EnterCriticalSection(Section(storage_)); }

bool CriticalSection::TryEnter() noexcept {
  return ::TryEnterCriticalSection(Section(storage_)) != FALSE;
}

void CriticalSection::Leave() noexcept { ::LeaveCriticalSection(Section(storage_)); }

}  // namespace kiv::platform
