// The implementation of the platform under the names of RealPlatformBegin.h. A function that is added to the platform and
// not renamed there fails to link, since it is defined twice.
#include "RealPlatformBegin.h"
// clang-format off
#include "ZVBase.cpp"
