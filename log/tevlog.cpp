#include "log/tevlog.h"
