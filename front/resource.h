// The numbers of the module's resources; the type library is number 1.
#pragma once

#define IDS_PROJECT_NAME 100
#define IDR_APPLICATION 101
#define IDR_CLASS 103
