/** @file
 * For generated code, not API: the one header a source written by
 * velmora-gen includes. What it brings (`include/velmora/detail/`,
 * namespace `velmora::detail`) may change in any release; programs call
 * the generated functions and the library's API, never these.
 *
 * A generated reader builds values from JSON text itself, without a
 * jsoncpp tree, for the envelope shapes the library writes. Any value of
 * another shape (a member of an unexpected kind, an envelope with extra
 * keys, a string with escapes, a number in another form) is parsed alone by
 * jsoncpp and handed to the type's deserializer, so both roads give the
 * same value. Text the fast road cannot vouch for as a whole (not strict
 * JSON, nested too deep) makes it give up: the whole text then goes to
 * jsoncpp. Everything is inline and header-only: it adds no symbol to the
 * library.
 */
#ifndef VELMORA_GENERATED_H
#define VELMORA_GENERATED_H

#include "velmora/detail/containers.h"
#include "velmora/detail/entry.h"
#include "velmora/detail/fields.h"
#include "velmora/detail/pages.h"
#include "velmora/detail/records.h"
#include "velmora/transport.h"
#include "velmora/values.h"

#endif
