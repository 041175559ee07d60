#include "tools/CommandLine.h"

#include "tools/Failure.h"

namespace vornactl {

namespace {

const Option& Find(const std::vector<Option>& options, std::wstring_view name) {
    for (const Option& option : options)
        if (name == option.name)
            return option;
    throw UsageError{L"unknown option: \"" + std::wstring(name) + L"\""};
}

// The value of the option in arguments[index], which may be the argument after it; index is then moved to that one.
std::wstring ReadValue(const Option& option, std::span<const std::wstring> arguments, size_t& index) {
    const std::wstring& argument = arguments[index];
    const size_t equals = argument.find(L'=');
    if (!option.value) {
        if (equals != argument.npos)
            throw UsageError{L"takes no value: \"" + argument + L"\""};
        return {};
    }
    const std::wstring name = option.name;
    if (equals == argument.npos && ++index == arguments.size())
        throw UsageError{L"\"" + name + L"\" must be followed by " + option.value};
    std::wstring value = equals == argument.npos ? arguments[index] : argument.substr(equals + 1);
    if (value.empty())
        throw UsageError{L"\"" + name + L"\" is followed by an empty " + option.value};
    return value;
}

} // namespace

CommandLine::CommandLine(std::span<const std::wstring> arguments, const Syntax& syntax) {
    bool optionsEnded = false;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::wstring& argument = arguments[i];
        if (!optionsEnded && argument == L"--") {
            optionsEnded = true;
        } else if (optionsEnded || !argument.starts_with(L"-") || argument == L"-") {
            if (words_.size() == syntax.words.size())
                throw UsageError{L"one word too many: \"" + argument + L"\""};
            if (argument.empty())
                throw UsageError{std::wstring(syntax.words[words_.size()]) + L" is an empty word"};
            words_.push_back(argument);
        } else {
            const Option& option = Find(syntax.options, argument.substr(0, argument.find(L'=')));
            std::vector<std::wstring>& values = values_[option.name];
            if (!option.repeated && !values.empty())
                throw UsageError{L"given twice: \"" + std::wstring(option.name) + L"\""};
            values.push_back(ReadValue(option, arguments, i));
        }
    }
    if (words_.size() < syntax.mandatoryWords)
        throw UsageError{std::wstring(syntax.words[words_.size()]) + L" is missing"};
    for (const Option& option : syntax.options)
        if (option.mandatory && !Has(option.name))
            throw UsageError{L"\"" + std::wstring(option.name) + L" " + option.value + L"\" is missing"};
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
