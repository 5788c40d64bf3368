#pragma once

#include <string>

#include "planex/report/canvas.h"
#include "planex/scan/profile.h"

namespace planex::report {

/// The bytes of a picture of 1200 x 600 pixels: Z over X, a line where neighbouring points were
/// measured and dots for all that were. @param profile has one at least
std::string drawProfile(const scan::Profile& profile, const std::string& title,
                        const std::string& unit, PictureFormat format);

}  // namespace planex::report
