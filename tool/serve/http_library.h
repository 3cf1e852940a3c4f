// The HTTP library as Debian builds it: what is chosen there changes what its classes hold, so that every source must
// choose the same.
#pragma once

#define CPPHTTPLIB_OPENSSL_SUPPORT
#include <httplib.h>
