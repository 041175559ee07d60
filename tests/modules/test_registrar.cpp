// A program that is asked to register itself: ends with 0 for /regserver and 3 for anything else. Where the event
// VORNATEST.Hang exists it says so on VORNATEST.Hanging and stays until the first one is set.
#include <windows.h>

#include <cstring>

int main(int count, char** arguments) {
    if (HANDLE hang = OpenEventA(SYNCHRONIZE, FALSE, "VORNATEST.Hang")) {
        if (HANDLE hanging = OpenEventA(EVENT_MODIFY_STATE, FALSE, "VORNATEST.Hanging")) {
            SetEvent(hanging);
            CloseHandle(hanging);
        }
        WaitForSingleObject(hang, INFINITE);
        CloseHandle(hang);
        // What shows that nobody has ended it.
        if (HANDLE ended = OpenEventA(EVENT_MODIFY_STATE, FALSE, "VORNATEST.Ended")) {
            SetEvent(ended);
            CloseHandle(ended);
        }
    }
    return count == 2 && std::strcmp(arguments[1], "/regserver") == 0 ? 0 : 3;
}
