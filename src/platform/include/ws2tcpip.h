// Name resolution, which the system library of this machine has under the same names.
#pragma once

#include <netdb.h>

#include <winsock2.h>
