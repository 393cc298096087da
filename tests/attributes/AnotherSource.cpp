#include "Corvane/File/XattrNames.h"

const std::string* FileSizeNameElsewhere();

const std::string* FileSizeNameElsewhere()
{
    return &Corvane::File::XattrFileSize;
}
