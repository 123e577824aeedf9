#pragma once

#include <any>
#include <map>
#include <optional>
#include <string>

#include "kivo/platform/Record.h"
#include "kivo/platform/base/Data.h"
#include "kivo/platform/json/JSONDecoding.h"
#include "kivo/platform/json/JSONEncoding.h"

namespace kivo::platform::JSON {

/// Reads a record from a JSON object in UTF-8; UTF-16 is refused. Keys that the record does not
/// have are skipped with their values, even numbers of any size and malformed numbers and texts. A
/// comma may follow the last item; the first of duplicate keys counts; a missing or null optional
/// is absent.
/// Throws DecodingError: dataCorrupted if `data` is not one JSON value nested at most
/// `maximumDepth` deep, else why the first field, in declaration order, cannot be read.
template <Record T>
T decode(const Data& data) {
    return read<T>(parse(data, shapeOf<T>), KeyPath{});
}

/// `record` as a compact JSON object; an absent optional gives no key.
template <Record T>
Data encode(const T& record) {
    Data output;
    append(output, record);
    return output;
}

/// `parameters` as a compact JSON object. Texts, Booleans, numbers, null pointers to text, and maps
/// and vectors of such can be encoded; anything else, and a number that is not finite, throws
/// EncodingError.
Data serialize(const std::map<std::string, std::any>& parameters);

/// The text that `value` holds as std::string, std::string_view, const char* or char*; a null
/// pointer, or anything else, is none.
std::optional<std::string> text(const std::any& value);

}  // namespace kivo::platform::JSON
