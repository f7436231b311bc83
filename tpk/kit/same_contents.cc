#include "tpk/kit/same_contents.h"

#include "tpk/kit/names.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {

void ThrowDataMissing(const std::filesystem::path& kit, const stdx::u16string& name) {
  throw Failure(ExitCode::kBadKit, "damaged-kit",
                Printable(kit.native()) + " is damaged: the bytes of " +
                    Printable(InstalledName(name)) + " are missing or corrupt",
                "tpk verify tells more");
}

}  // namespace quarn::tpk
