#include "wizard/pictures.h"

namespace quarn {
namespace {

constexpr unsigned char kSide[] = {
#include "side_bmp.inc"
};
constexpr unsigned char kError[] = {
#include "error_png.inc"
};
constexpr unsigned char kQuestion[] = {
#include "question_png.inc"
};

}  // namespace

Picture SidePicture() { return {kSide, sizeof(kSide)}; }

Picture ErrorPicture() { return {kError, sizeof(kError)}; }

Picture QuestionPicture() { return {kQuestion, sizeof(kQuestion)}; }

}  // namespace quarn
