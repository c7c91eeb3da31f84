// System information for the host program: the operating system's version as a short text, and
// the file-creation mask.
#ifndef KIV_SYSTEM_H_
#define KIV_SYSTEM_H_

#include <kiv/export.h>
#include <kiv/object.h>
#include <kiv/string.h>

#include <cstdint>

namespace kiv {

struct KIV_EXPORT SystemVersionStringExp {
  // The system's major and minor version as "major.minor" (on Linux the first two numbers of the
  // kernel release, "6.1"; no build number or other text). InternalError "cannot determine system
  // version" when the system does not tell, "unrecognized system version" when its answer does not
  // start with the two numbers.
  [[nodiscard]] static String Make();
};

// The process's file-creation mask: the permission bits that new files and directories do not
// get. Systems without such a mask accept both operations and do nothing.
struct KIV_EXPORT UMaskItf : public virtual RefCount {
  ~UMaskItf() override;

  // Makes `mask` (its permission bits, 0777 at most) the process's mask, remembering the mask it
  // replaces. The mask is the process's, so other threads creating files meanwhile see it too.
  virtual void Set(std::uint32_t mask) = 0;
  // Puts back the mask that the last Set replaced; nothing when Set was not called.
  virtual void Restore() = 0;
};

struct KIV_EXPORT UMaskExp {
  [[nodiscard]] static Ref<UMaskItf> Make();
};

}  // namespace kiv

#endif  // KIV_SYSTEM_H_
