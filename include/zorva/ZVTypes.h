#pragma once

#include <zorva/platform/Error.h>
#include <zorva/platform/Geometry.h>
#include <zorva/platform/Value.h>

namespace zorva {

using platform::Data;
using platform::Error;
using platform::Value;

/// An ad size: width and height in points.
using ZVAdSize = platform::Size;

}  // namespace zorva
