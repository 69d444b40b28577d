// Text as LMDB's byte values and back: LMDB reads a value's bytes and never
// writes through them, so a view of a string serves as one.
#pragma once

#include <lmdb.h>

#include <string_view>

namespace Plim {

inline MDB_val bytesOf(std::string_view text) {
   return MDB_val{text.size(), const_cast<char*>(text.data())};
}

inline std::string_view textOf(const MDB_val& value) {
   return {static_cast<const char*>(value.mv_data), value.mv_size};
}

}  // namespace Plim
