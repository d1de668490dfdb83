#include "device/region.h"

char g_region[128];
