/** @file
 ** @file
 * Everything the library offers: include this one header. */
#ifndef VELMORA_H
#define VELMORA_H

#include "velmora/digest.h"
#include "velmora/transport.h"
#include "velmora/values.h"
#include "velmora/version.h"

#endif
