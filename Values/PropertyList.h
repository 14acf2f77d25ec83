// Property lists in their three forms: binary and XML, written and read, and old-style text, read.
#pragma once

#include "../Platform/Export.h"
#include "../Platform/Result.h"
#include "Value.h"

#include <span>
#include <string>

namespace moxel {

/// The forms of a property list.
enum class PropertyListFormat { binary, xml, openStep };

/// Whether the containers of a list that is read can be changed in place.
enum class Mutability : bool { immutable, mutableContainers };

/// A list that was read.
struct PropertyList {
    Value root;                ///< Its value.
    PropertyListFormat format; ///< The form that it had.
};

/// Reads a property list of any form, told apart by its first bytes. Total: any bytes give a value or an
/// error that says what is wrong and where, in time and memory linear in their number, at any nesting depth.
/// No bytes at all are an error. Any thread, like the functions below.
[[nodiscard]] MOXEL_EXPORT Result<PropertyList>
readPropertyList(std::span<const uint8_t> bytes, Mutability mutability = Mutability::immutable);

/// What the file refers to twice is one value in memory, a mutable container too. Of two values under one key
/// the first counts. Null is read as the null value, bytes beyond ASCII in an ASCII string as Latin-1. Sets,
/// integers of more than 64 bits, keys that are not strings, containers that hold themselves and objects that
/// overlap are errors.
[[nodiscard]] MOXEL_EXPORT Result<Value> readBinaryPropertyList(std::span<const uint8_t> bytes,
                                                                Mutability mutability);

/// Encodings by byte-order mark or XML declaration: UTF-8, UTF-16, UTF-32, ISO 8859-1, ASCII. Of two values
/// under one key the last counts. A dictionary of nothing but CF$UID with a number is a UID; a plist element
/// of nothing is null. Nothing outside the bytes is opened; entities of the document's own are errors.
[[nodiscard]] MOXEL_EXPORT Result<Value> readXMLPropertyList(std::span<const uint8_t> bytes,
                                                             Mutability mutability);

/// Dictionaries, arrays, strings, data; the braceless form of strings files; the typed values (<*I5>) and the
/// base64 (<[...]>) of GNUstep. In UTF-8, or in UTF-16 or UTF-32 with or without a byte-order mark. Of two
/// values under one key the last counts. Text of nothing but white space and comments is an empty dictionary.
[[nodiscard]] MOXEL_EXPORT Result<Value> readOpenStepPropertyList(std::span<const uint8_t> bytes,
                                                                  Mutability mutability);

/// The bytes that Foundation would write, dictionaries in their own order: equal scalars and texts once,
/// shared containers once. An error for what a property list cannot hold: null, records, a container that
/// holds itself.
[[nodiscard]] MOXEL_EXPORT Result<Data> writeBinaryPropertyList(const Value &root);

/// The text that Foundation would write, dictionaries in their own order, but indented by no more than 32
/// tabs. Dates are cut to whole seconds, a UID becomes a dictionary with the key CF$UID. An error for what a
/// property list cannot hold, for characters that XML cannot hold, for dates beyond years of eight digits,
/// and where containers and texts that stand in several places would repeat for more than 64 MiB.
[[nodiscard]] MOXEL_EXPORT Result<std::string> writeXMLPropertyList(const Value &root);

} // namespace moxel
