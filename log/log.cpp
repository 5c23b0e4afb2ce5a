#include "log/tevlog.h"

// Before all other static objects of the program: prototypes of messages write to it when they register.
[[gnu::init_priority(200)]] tev::tevlog tev::log("/tmp/transient.log");
