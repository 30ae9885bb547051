#include <iostream>

#include "platform/hostlink/HostLinkPrinter.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "platform/sdk/VornValue.h"
#include "vocabulary/States.h"

/// Uses both libraries as they are installed.
int main()
{
    HostLinkUInt16Message request(MSG_GetState);
    request.addValue(STA_Volume);
    std::cout << HostLinkPrinter::printMessage(request.serialize()) << "; "
              << VornValue().setI32(5).toJsonString().toStdString() << '\n';
}
