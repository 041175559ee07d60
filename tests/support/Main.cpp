// The entry of every test program: COM is up before the first test, in the multithreaded apartment.
#include <gtest/gtest.h>

#include <objbase.h>

int main(int count, char** arguments) {
    testing::InitGoogleTest(&count, arguments);
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    int result = RUN_ALL_TESTS();
    CoUninitialize();
    return result;
}
