// What a person may have meant by a name that does not exist.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace Tools {

// The name with the fewest insertions, deletions and replacements between it and the text, the
// first of equals; letters count alike in either case. Empty if there are no names.
std::string_view nearest(std::string_view text, std::span<const std::string> names);

// "no table "Foa"; the nearest name is Foo"; `kind` is what the name was to be the name of.
std::string unknownName(std::string_view kind, std::string_view text,
                        std::span<const std::string> names);

}  // namespace Tools
