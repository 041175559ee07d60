#include "tools/Advice.h"

#include "common/com/results.h"
#include "common/com/unique_any.h"
#include "tools/EventClient.h"
#include "tools/OrphanedArchives.h"

#include <algorithm>
#include <vector>

namespace vornactl {

namespace {

using namespace vorna;

struct Entry {
    std::vector<HRESULT> codes;
    const wchar_t* advice;
    // Null for any text.
    const wchar_t* text = nullptr;
};

// The first entry that matches is used, so entries with a text are before the one without.
const Entry TABLE[] = {
    // Subscription documents.
    {{RESULT_XML_MALFORMED},
     L"Make the document well-formed XML without a document type definition; the root of a subscription is Archive, that of a service is service."},
    {{RESULT_ARCHIVE_ID},
     L"Give the Archive element an ID attribute that is not blank and has none of the characters that the text names."},
    {{RESULT_COLLECT}, L"Write <Collect>ON</Collect> to keep the archive or <Collect>OFF</Collect> to end it."},
    {{RESULT_LIFETIME_BEFORE_READ, RESULT_LIFETIME_AFTER_READ, RESULT_AGING},
     L"Write durations with every designator, as P0Y0M1DT0H0M0S for one day."},
    {{RESULT_STORAGE_UNITS}, L"Give MaxStorageSize the attribute Units=\"NUMFILES\" or Units=\"KB\"."},
    {{RESULT_STORAGE_SIZE}, L"Write MaxStorageSize with digits alone: no sign, no blanks."},
    {{RESULT_EVENT_TYPE}, L"Give the archive one of the elements Timer, KROEvent and XDMEvent, with content."},
    {{RESULT_TIMER_FREQUENCY}, L"Give Timer a Frequency with every designator, as P0Y0M0DT0H5M0S for five minutes."},
    {{RESULT_TIMER_RETRIES}, L"Write Retries with digits alone, or leave it out."},
    {{RESULT_KRO_NAME}, L"Give KROEvent one Name element with the name of the event."},
    {{RESULT_KRO_FILTERS}, L"Write each filter inside Filter as <Property Name=\"name\">value</Property>."},
    {{RESULT_KRO_ARCHIVE_TYPE, RESULT_XDM_PAYLOAD},
     L"Give the event element an EventPayload, which archives the payload of the event, or an XMLDataModel, which archives data of the service."},
    {{RESULT_DATA_MODEL, RESULT_XDM_XPATH, RESULT_XDM_PREFIXES},
     L"Give XMLDataModel both an XPath and an XDMPrefixes element, neither of them empty."},
    {{RESULT_XDM_EVENTS}, L"Give XDMEvent at least one Event element, and each of them an XPath."},
    {{RESULT_XDM_EVENT_XPATH}, L"Give every Event of XDMEvent one XPath element that is not empty."},
    {{E_NOTIMPL},
     L"A component does not know this operation. Register modules of one version (\"vornactl register\")."},

    // Requests.
    {{RESULT_SERVICE_OBJECT},
     L"Give the service document portID, serviceId and serviceURI; each names a folder, so none may be empty or contain one of \\ / : * ? \" < > | &."},
    {{RESULT_INPUT_STRING}, L"Give a subscription document that is not empty."},
    {{RESULT_XPATH},
     L"Begin the XPath with /Archive[@ID='...'], the ID without blanks, and go on with the path inside a snapshot."},
    {{RESULT_NO_SUBSCRIPTION},
     L"Compare the archive ID and the service with what \"vornactl list\" shows: both must be the subscription's."},
    {{RESULT_TIMER_REGISTRATION},
     L"The platform's timer did not accept the registration. Check that QXKeldanHost.exe is registered (\"vornactl register\") and that the frequency is not zero."},
    {{RESULT_XML_ACCESSOR, RESULT_ARCHIVE_MANAGER, REGDB_E_CLASSNOTREG, CO_E_CLASSSTRING, E_NOINTERFACE},
     L"Run \"vornactl register\" as an administrator, from the folder with all modules."},
    {{RESULT_EXCEPTION},
     L"Something failed that has no code of its own. Try again; if it fails again, turn on the component's log (README, \"Settings\") and look at its last lines."},
    {{PLATFORM_TICKET_UNKNOWN}, L"The platform's timer lost its tickets. Try again: a new one is taken."},
    {{PLATFORM_TICKET_STALE}, L"The platform's timer replaced its tickets. Try again: a new one is taken."},
    {{PLATFORM_ID_UNKNOWN}, L"The platform no longer has the registration. Subscribe again."},
    {{PLATFORM_ID_EXPIRED}, L"The registration has reached its end date. Subscribe again."},
    {{E_FAIL},
     L"Nothing has been captured yet, or everything has outlived its lifetime: wait for the next tick. "
     L"If \"vornactl list\" shows snapshots, the file that contains them could not be read: put it back from a backup of this machine, or unsubscribe the archive and subscribe it again.",
     L"No Data Present in the Archive"},
    {{E_FAIL},
     L"There are snapshots, but the XPath selects nothing in them. Read with /Archive[@ID='...']/* to see what they contain; names with a namespace need a prefix that the archived data declares.",
     L"Could not find the required data in the archive"},
    {{E_FAIL},
     L"Check that you may write to the folder of Vorna.dll and that the service's identity makes a valid folder name.",
     L"Directory creation failed"},
    // GetData on a service object that names no folder.
    {{E_FAIL},
     L"Give the service document portID, serviceId and serviceURI, each of them valid as the name of a folder. If they are, turn on the component's log (README, \"Settings\").",
     L""},
    {{E_FAIL}, L"This is the general code. Turn on the component's log (README, \"Settings\") to see the step."},

    // The subject is the archive, not the file or device that the system's text names.
    {{HRESULT_FROM_WIN32(ERROR_BUSY)},
     L"Every second of the next ten minutes already has a snapshot, because events arrive faster than one a second. "
     L"The event is sent again by itself. If it is still refused, let the filter of the subscription pass fewer events."},
    {{HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS)},
     L"Other clients are registering the same archive at the same time. Check the result with \"vornactl list\", and subscribe again to renew it."},

    // The operating system.
    {{CO_E_SERVER_EXEC_FAILURE},
     L"The host process did not start. Check that QXKeldanHost.exe is where it was registered, then run \"vornactl register\"."},
    {{HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE), HRESULT_FROM_WIN32(RPC_S_CALL_FAILED)},
     L"The host process ended during the request. Try again: it starts by itself and has lost nothing."},
    {{HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT)},
     L"A file on disk is damaged, or is not the one that was written there. "
     L"Put it back from a backup of this machine; nothing can be read from it or changed in it before. "
     L"Other archives are not affected, unless it is the file Vorna beside Vorna.dll, which records them all."},
    {{HRESULT_FROM_WIN32(ERROR_LOCK_VIOLATION)}, L"Another process uses the archive. Try again when it has finished."},
    {{HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION)}, L"Another program has the file open. Close it and try again."},
    {{HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)},
     L"Remove the write protection, or use an account with the necessary rights; registering needs an administrator."},
    {{HRESULT_FROM_WIN32(ERROR_DISK_FULL)}, L"Free space on the disk and try again; nothing was changed."},
    {{HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)},
     L"Put the file Vorna back into the folder of Vorna.dll from a backup of this machine. If there is none and the archives are not needed, delete the folder Archives by hand.",
     NO_RECORD},
    {{HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)}, L"Check that the file exists and its name is right."},
    {{HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND)}, L"Check that the folder exists and its name is right."},
    {{HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND)}, L"Copy the module to the folder of vornactl.exe, or name its folder."},
    {{HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND)},
     L"The file is not a module that can be registered: copy the right one there."},
    {{HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT)}, L"All modules are 32-bit: copy the 32-bit file there."},
    {{HRESULT_FROM_WIN32(ERROR_NOT_FOUND)},
     L"The service has no data model: use serviceURI \"host\", or store one with \"vornactl model put\"."},
    {{HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA)},
     L"Waiting events are delivered one after the other. "
     L"End the subscriptions whose receiver no longer takes its events, let the others catch up, and raise the event again; those for which it was queued then get it once more.",
     QUEUE_FULL},
    {{HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA)},
     L"This XPath would take too long on this data. Name the steps of the path instead of writing //."},
    {{HRESULT_FROM_WIN32(ERROR_FILE_TOO_LARGE)},
     L"Make it smaller: a payload may have 8,388,608 characters, a data model 64 megabytes."},
    {{HRESULT_FROM_WIN32(ERROR_INVALID_DATA)}, L"Put a document into the file, or name another one."},
    {{HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION)}, L"Save the file as UTF-8 or UTF-16."},
    {{E_INVALIDARG},
     L"Change the value that the text names. "
     L"If it names none: every event and property needs a name that is not blank, and the XPaths, triggers, resets and durations of a subscription must be valid."},
    {{E_OUTOFMEMORY}, L"There was not enough memory. Close programs, or read less at once with a longer XPath."},
};

constexpr wchar_t GENERAL[] =
    L"vornactl has no advice for this code. Turn on the component's log (README, \"Settings\") to see the step.";

} // namespace

std::wstring_view AdviceFor(HRESULT code, std::wstring_view text) {
    for (const Entry& entry : TABLE)
        if (std::ranges::find(entry.codes, code) != entry.codes.end() && (!entry.text || text == entry.text))
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
