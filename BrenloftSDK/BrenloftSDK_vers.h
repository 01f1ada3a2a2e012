#pragma once

#include "platform/foundation/Export.h"

extern "C" {
/// 1.0
BRL_EXPORT extern const double BrenloftSDKVersionNumber;
/// "@(#)PROGRAM:BrenloftSDK  PROJECT:BrenloftSDK-1" and a line end, zero-terminated.
BRL_EXPORT extern const unsigned char BrenloftSDKVersionString[];
}
