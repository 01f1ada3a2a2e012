#include "BrenloftSDK/BrenloftSDK_vers.h"

const double BrenloftSDKVersionNumber = 1.0;
const unsigned char BrenloftSDKVersionString[] = "@(#)PROGRAM:BrenloftSDK  PROJECT:BrenloftSDK-1\n";
