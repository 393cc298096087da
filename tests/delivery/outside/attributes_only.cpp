// A program that does not use the platform directly. usage: attributes_only FILE
#include <Corvane/File/ExtendedAttributes.h>

int main(int /*count*/, char** arguments)
{
    bool success = false;
    Corvane::File::ExtendedAttributes::List(arguments[1], success);
    return success ? 0 : 1;
}
