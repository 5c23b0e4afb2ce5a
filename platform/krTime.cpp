#include "platform/krTime.h"
