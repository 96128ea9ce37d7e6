// The baseline of the Windows benchmark: the same one Win32 call as
// "Accessory GetMouseSpeed", and the number printed.
#include <windows.h>

#include <cstdio>

int main()
{
    int speed = -1;
    if (!SystemParametersInfoW(SPI_GETMOUSESPEED, 0, &speed, 0)) speed = -1;
    std::printf("%d\n", speed);
    return 0;
}
