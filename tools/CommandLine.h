// The arguments of a command, checked against its syntax.
#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vornactl {

struct Option {
    // Dashes included.
    const wchar_t* name;
    // The name of its value, for messages; null if it has none.
    const wchar_t* value = nullptr;
    bool mandatory = false;
    bool repeated = false;
};

struct Syntax {
    // The names of the positional arguments in order, for messages.
    std::vector<const wchar_t*> words;
    size_t mandatoryWords = 0;
    std::vector<Option> options;
};

class CommandLine {
  public:
    // arguments: everything after the command. Options may be anywhere, as "--name value" or "--name=value"; after "--"
    // every argument is positional. Throws UsageError, which names the wrong or the missing argument.
    CommandLine(std::span<const std::wstring> arguments, const Syntax& syntax);

    // Empty if it was not given.
    std::wstring Word(size_t index) const { return index < words_.size() ? words_[index] : std::wstring(); }
    std::wstring Value(std::wstring_view option) const;
    // All values of a repeated option, in order.
    std::vector<std::wstring> Values(std::wstring_view option) const;
    bool Has(std::wstring_view option) const { return values_.contains(option); }

  private:
    std::vector<std::wstring> words_;
    std::map<std::wstring, std::vector<std::wstring>, std::less<>> values_;
};

} // namespace vornactl
