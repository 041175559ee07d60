#include "tools/Advice.h"

#include "common/com/results.h"
#include "common/com/unique_any.h"
#include "tools/EventClient.h"

namespace vornactl {

namespace {

using namespace vorna;

struct Entry {
    HRESULT code;
    // Null for any text.
    const wchar_t* text;
    const wchar_t* advice;
};

constexpr wchar_t DURATIONS[] = L"Write durations with every designator, as P0Y0M1DT0H0M0S for one day.";
constexpr wchar_t REGISTER[] = L"Run \"vornactl register\" as an administrator, from the folder with all modules.";
constexpr wchar_t DATA_MODEL[] = L"Give XMLDataModel both an XPath and an XDMPrefixes element, neither of them empty.";
constexpr wchar_t EVENT_SOURCE[] =
    L"Give the event element an EventPayload, which archives the payload of the event, or an XMLDataModel, which archives data of the service.";

// The first entry that matches is used, so entries with a text are before the one without.
const Entry TABLE[] = {
    // Subscription documents.
    {RESULT_XML_MALFORMED, nullptr,
     L"Make the document well-formed XML without a document type definition; the root of a subscription is Archive, that of a service is service."},
    {RESULT_ARCHIVE_ID, nullptr,
     L"Give the Archive element an ID attribute that is not blank and has none of the characters that the text names."},
    {RESULT_COLLECT, nullptr, L"Write <Collect>ON</Collect> to keep the archive or <Collect>OFF</Collect> to end it."},
    {RESULT_LIFETIME_BEFORE_READ, nullptr, DURATIONS},
    {RESULT_LIFETIME_AFTER_READ, nullptr, DURATIONS},
    {RESULT_AGING, nullptr, DURATIONS},
    {RESULT_STORAGE_UNITS, nullptr, L"Give MaxStorageSize the attribute Units=\"NUMFILES\" or Units=\"KB\"."},
    {RESULT_STORAGE_SIZE, nullptr, L"Write MaxStorageSize with digits alone: no sign, no blanks."},
    {RESULT_EVENT_TYPE, nullptr, L"Give the archive one of the elements Timer, KROEvent and XDMEvent, with content."},
    {RESULT_TIMER_FREQUENCY, nullptr,
     L"Give Timer a Frequency with every designator, as P0Y0M0DT0H5M0S for five minutes."},
    {RESULT_TIMER_RETRIES, nullptr, L"Write Retries with digits alone, or leave it out."},
    {RESULT_KRO_NAME, nullptr, L"Give KROEvent one Name element with the name of the event."},
    {RESULT_KRO_FILTERS, nullptr, L"Write each filter inside Filter as <Property Name=\"name\">value</Property>."},
    {RESULT_KRO_ARCHIVE_TYPE, nullptr, EVENT_SOURCE},
    {RESULT_DATA_MODEL, nullptr, DATA_MODEL},
    {RESULT_XDM_EVENTS, nullptr, L"Give XDMEvent at least one Event element, and each of them an XPath."},
    {RESULT_XDM_EVENT_XPATH, nullptr, L"Give every Event of XDMEvent one XPath element that is not empty."},
    {RESULT_XDM_PAYLOAD, nullptr, EVENT_SOURCE},
    {RESULT_XDM_XPATH, nullptr, DATA_MODEL},
    {RESULT_XDM_PREFIXES, nullptr, DATA_MODEL},
    {E_NOTIMPL, nullptr,
     L"A component does not know this operation. Register modules of one version (\"vornactl register\")."},

    // Requests.
    {RESULT_SERVICE_OBJECT, nullptr,
     L"Give the service document portID, serviceId and serviceURI; each names a folder, so none may be empty or contain one of \\ / : * ? \" < > | &."},
    {RESULT_INPUT_STRING, nullptr, L"Give a subscription document that is not empty."},
    {RESULT_XPATH, nullptr,
     L"Begin the XPath with /Archive[@ID='...'], the ID without blanks, and go on with the path inside a snapshot."},
    {RESULT_NO_SUBSCRIPTION, nullptr,
     L"Compare the archive ID and the service with what \"vornactl list\" shows: both must be the subscription's."},
    {RESULT_TIMER_REGISTRATION, nullptr,
     L"The platform's timer did not accept the registration. Check that QXKeldanHost.exe is registered (\"vornactl register\") and that the frequency is not zero."},
    {RESULT_XML_ACCESSOR, nullptr, REGISTER},
    {RESULT_ARCHIVE_MANAGER, nullptr, REGISTER},
    {RESULT_EXCEPTION, nullptr,
     L"Something failed that has no code of its own. Try again; if it fails again, turn on the component's log (README, \"Settings\") and look at its last lines."},
    {PLATFORM_TICKET_UNKNOWN, nullptr, L"The platform's timer lost its tickets. Try again: a new one is taken."},
    {PLATFORM_TICKET_STALE, nullptr, L"The platform's timer replaced its tickets. Try again: a new one is taken."},
    {PLATFORM_ID_UNKNOWN, nullptr, L"The platform no longer has the registration. Subscribe again."},
    {PLATFORM_ID_EXPIRED, nullptr, L"The registration has reached its end date. Subscribe again."},
    {E_FAIL, L"No Data Present in the Archive",
     L"Nothing has been captured yet, or everything has outlived its lifetime: wait for the next tick. "
     L"If \"vornactl list\" shows snapshots, the file that contains them could not be read: put it back from a backup of this machine, or unsubscribe the archive and subscribe it again."},
    {E_FAIL, L"Could not find the required data in the archive",
     L"There are snapshots, but the XPath selects nothing in them. Read with /Archive[@ID='...']/* to see what they contain; names with a namespace need a prefix that the archived data declares."},
    {E_FAIL, L"Directory creation failed",
     L"Check that you may write to the folder of Vorna.dll and that the service's identity makes a valid folder name."},
    // GetData on a service object that names no folder.
    {E_FAIL, L"",
     L"Give the service document portID, serviceId and serviceURI, each of them valid as the name of a folder. If they are, turn on the component's log (README, \"Settings\")."},
    {E_FAIL, nullptr, L"This is the general code. Turn on the component's log (README, \"Settings\") to see the step."},

    // The operating system.
    {REGDB_E_CLASSNOTREG, nullptr, REGISTER},
    {CO_E_CLASSSTRING, nullptr, REGISTER},
    {E_NOINTERFACE, nullptr, REGISTER},
    {CO_E_SERVER_EXEC_FAILURE, nullptr,
     L"The host process did not start. Check that QXKeldanHost.exe is where it was registered, then run \"vornactl register\"."},
    {HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE), nullptr,
     L"The host process ended during the request. Try again: it starts by itself and has lost nothing."},
    {HRESULT_FROM_WIN32(RPC_S_CALL_FAILED), nullptr,
     L"The host process ended during the request. Try again: it starts by itself and has lost nothing."},
    {HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT), nullptr,
     L"A file on disk is damaged, or is not the one that was written there. "
     L"Put it back from a backup of this machine; nothing can be read from it or changed in it before. "
     L"Other archives are not affected, unless it is the file Vorna beside Vorna.dll, which records them all."},
    {HRESULT_FROM_WIN32(ERROR_LOCK_VIOLATION), nullptr,
     L"Another process uses the archive. Try again when it has finished."},
    {HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION), nullptr,
     L"Another program has the file open. Close it and try again."},
    {HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), nullptr,
     L"Remove the write protection, or use an account with the necessary rights; registering needs an administrator."},
    {HRESULT_FROM_WIN32(ERROR_DISK_FULL), nullptr, L"Free space on the disk and try again; nothing was changed."},
    {HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), nullptr, L"Check that the file exists and its name is right."},
    {HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), nullptr, L"Check that the folder exists and its name is right."},
    {HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND), nullptr,
     L"Copy the module to the folder of vornactl.exe, or name its folder."},
    {HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND), nullptr,
     L"The file is not a module that can be registered: copy the right one there."},
    {HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT), nullptr, L"All modules are 32-bit: copy the 32-bit file there."},
    {HRESULT_FROM_WIN32(ERROR_NOT_FOUND), nullptr,
     L"The service has no data model: use serviceURI \"host\", or store one with \"vornactl model put\"."},
    {HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA), QUEUE_FULL,
     L"Waiting events are delivered one after the other. "
     L"End the subscriptions whose receiver no longer takes its events, let the others catch up, and raise the event again; those for which it was queued then get it once more."},
    {HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA), nullptr,
     L"This XPath would take too long on this data. Name the steps of the path instead of writing //."},
    {HRESULT_FROM_WIN32(ERROR_FILE_TOO_LARGE), nullptr,
     L"Make it smaller: a payload may have 8,388,608 characters, a data model 64 megabytes."},
    {HRESULT_FROM_WIN32(ERROR_INVALID_DATA), nullptr, L"Put a document into the file, or name another one."},
    {HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION), nullptr, L"Save the file as UTF-8 or UTF-16."},
    {E_INVALIDARG, nullptr,
     L"Change the value that the text names. "
     L"If it names none: every event and property needs a name that is not blank, and the XPaths, triggers, resets and durations of a subscription must be valid."},
    {E_OUTOFMEMORY, nullptr, L"There was not enough memory. Close programs, or read less at once with a longer XPath."},
};

constexpr wchar_t GENERAL[] =
    L"vornactl has no advice for this code. Turn on the component's log (README, \"Settings\") to see the step.";

} // namespace

std::wstring_view AdviceFor(HRESULT code, std::wstring_view text) {
    for (const Entry& entry : TABLE)
        if (entry.code == code && (!entry.text || text == entry.text))
            return entry.advice;
    return GENERAL;
}

std::wstring SystemText(HRESULT code) {
    // The component's own codes have the form of the system's.
    if (HRESULT_FACILITY(code) == FACILITY_NULL && code >= result_code(0x80000000) && code < result_code(0x80001000))
        return {};
    wchar_t* buffer = nullptr;
    const DWORD length =
        FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                       nullptr, static_cast<DWORD>(code), 0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
    unique_local_memory owner(buffer);
    std::wstring text(buffer ? buffer : L"", length);
    while (!text.empty() && (text.back() == L'\r' || text.back() == L'\n' || text.back() == L' '))
        text.pop_back();
    return text;
}

} // namespace vornactl
