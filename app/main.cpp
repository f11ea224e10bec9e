#include "DesktopApplication.h"

int main(int argc, char* argv[])
{
    return DesktopApplication::run(argc, argv);
}
