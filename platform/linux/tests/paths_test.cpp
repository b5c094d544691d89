// Win32 path rules on host-folder volumes.
#include <gtest/gtest.h>
