#include "tools/CommandLine.h"

#include "tools/Failure.h"

#include <algorithm>

namespace vornactl {

CommandLine::CommandLine(std::span<const std::wstring> arguments, const Syntax& allowed) {
    bool plain = false;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::wstring& argument = arguments[i];
        if (plain || !argument.starts_with(L"-") || argument == L"-") {
            if (words_.size() == allowed.words.size())
                throw UsageError{L"one word too many: \"" + argument + L"\""};
            if (argument.empty())
                throw UsageError{std::wstring(allowed.words[words_.size()]) + L" is an empty word"};
            words_.push_back(argument);
            continue;
        }
        if (argument == L"--") {
            plain = true;
            continue;
        }
        const size_t equals = argument.find(L'=');
        const std::wstring name = argument.substr(0, equals);
        const auto known = std::find_if(allowed.options.begin(), allowed.options.end(),
                                        [&](const Option& entry) { return name == entry.name; });
        if (known == allowed.options.end())
            throw UsageError{L"unknown option: \"" + name + L"\""};
        if (!known->repeated && values_.contains(name))
            throw UsageError{L"given twice: \"" + name + L"\""};
        std::wstring value;
        if (!known->value) {
            if (equals != argument.npos)
                throw UsageError{L"takes no value: \"" + argument + L"\""};
        } else if (equals != argument.npos) {
            value = argument.substr(equals + 1);
        } else {
            if (++i == arguments.size())
                throw UsageError{L"\"" + name + L"\" must be followed by " + known->value};
            value = arguments[i];
        }
        if (known->value && value.empty())
            throw UsageError{L"\"" + name + L"\" is followed by an empty " + known->value};
        values_[name].push_back(std::move(value));
    }
    if (words_.size() < allowed.mandatoryWords)
        throw UsageError{std::wstring(allowed.words[words_.size()]) + L" is missing"};
    for (const Option& entry : allowed.options)
        if (entry.mandatory && !values_.contains(std::wstring_view(entry.name)))
            throw UsageError{L"\"" + std::wstring(entry.name) + L" " + (entry.value ? entry.value : L"") +
                             L"\" is missing"};
}

std::wstring CommandLine::Value(std::wstring_view option) const {
    const auto found = values_.find(option);
    return found == values_.end() ? std::wstring() : found->second.front();
}

std::vector<std::wstring> CommandLine::Values(std::wstring_view option) const {
    const auto found = values_.find(option);
    return found == values_.end() ? std::vector<std::wstring>() : found->second;
}

} // namespace vornactl
