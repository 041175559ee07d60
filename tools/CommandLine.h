// The words of a command, checked against what the command takes.
#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vornactl {

struct Option {
    // With its dashes.
    const wchar_t* name;
    // What stands behind it, for messages; null: nothing does.
    const wchar_t* value = nullptr;
    bool mandatory = false;
    // It may be given more than once.
    bool repeated = false;
};

// What a command takes.
struct Syntax {
    // The names of the words without an option, in order, for messages.
    std::vector<const wchar_t*> words;
    size_t mandatoryWords = 0;
    std::vector<Option> options;
};

// Words that were found right.
class CommandLine {
  public:
    // arguments: what follows the command. Options may stand anywhere, as "--name value" or "--name=value"; after "--"
    // everything is a plain word. Throws UsageError, which names the wrong or the missing word.
    CommandLine(std::span<const std::wstring> arguments, const Syntax& allowed);

    // Empty where it was not given.
    std::wstring Word(size_t index) const { return index < words_.size() ? words_[index] : std::wstring(); }
    std::wstring Value(std::wstring_view option) const;
    // Every value of an option that may be repeated, in order.
    std::vector<std::wstring> Values(std::wstring_view option) const;
    bool Has(std::wstring_view option) const { return values_.contains(option); }

  private:
    std::vector<std::wstring> words_;
    std::map<std::wstring, std::vector<std::wstring>, std::less<>> values_;
};

} // namespace vornactl
