#include "conformance/conformance.h"

int main()
{
    Conformance::show();
    return 0;
}
