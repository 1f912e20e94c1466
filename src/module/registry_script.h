#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sentrel {

// A registration script: the keys that a module writes under HKEY_CLASSES_ROOT, in the text form
// of the platform registrar's scripts, of which it takes the part that registering a COM class
// needs:
//
//   HKCR
//   {
//       NoRemove CLSID
//       {
//           ForceRemove '{...}' = s 'Display name'
//           {
//               InprocServer32 = s '%MODULE%'
//               {
//                   val ThreadingModel = s 'Both'
//               }
//           }
//       }
//   }
//
// A key is a bare word or a quoted text ('' stands for one quote), optionally preceded by
// NoRemove or ForceRemove, optionally followed by "= s 'text'" for its default value and by a
// block of subkeys and "val name = s 'text'" values. Keywords are matched ignoring case; a name
// that is a keyword, or holds braces, quotes, "=" or white space, is quoted. %NAME% in a name or
// a text stands for the replacement NAME, and %% for one percent sign.
struct RegistryScriptValue {
    std::wstring name;
    std::wstring data;

    friend bool operator==(const RegistryScriptValue&, const RegistryScriptValue&) = default;
};

struct RegistryScriptKey {
    // What unregistering does with the key: Remove deletes it once nothing else is left in it;
    // NoRemove keeps it (only what the script lists inside it goes); ForceRemove deletes it with
    // everything in it, and registering deletes an existing one whole before writing it anew.
    enum class Removal { Remove, NoRemove, ForceRemove };

    Removal removal = Removal::Remove;
    std::wstring name;
    std::optional<std::wstring> defaultValue;
    std::vector<RegistryScriptValue> values;
    std::vector<RegistryScriptKey> subkeys;

    friend bool operator==(const RegistryScriptKey&, const RegistryScriptKey&) = default;
};

// The keys a script places under HKEY_CLASSES_ROOT, in script order.
struct RegistryScript {
    std::vector<RegistryScriptKey> classesKeys;

    friend bool operator==(const RegistryScript&, const RegistryScript&) = default;
};

using RegistryReplacements = std::map<std::wstring, std::wstring, std::less<>>;

// Keys nest at most this deep below the root; deeper scripts are rejected.
inline constexpr std::size_t kRegistryScriptMaxDepth = 32;

// The script in text, with the replacements made; nothing when the text is not a well-formed
// script or names a replacement that is not given.
std::optional<RegistryScript> ParseRegistryScript(std::wstring_view text,
                                                  const RegistryReplacements& replacements);

}  // namespace sentrel
