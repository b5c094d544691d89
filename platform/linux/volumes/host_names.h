// How the name of an entry in a host folder becomes a Windows name and back. Every conversion of a name
// between the host and the host-folder volume goes through these two functions, so that each entry is
// listed, looked up, copied and deleted as exactly itself.
//
// Linux allows in a name every byte but '/' and NUL; Windows does not. A host name that could not exist on
// Windows is mapped, unit by unit, into the private-use range U+F000-U+F0FF, as Cygwin does:
//   - a character Windows forbids in names (\ : * ? " < > | and the controls 0x01-0x1F) becomes U+F000+c;
//   - a dot or space at the end becomes U+F000+c (Windows would drop it);
//   - a reserved device name (CON, PRN, AUX, NUL, COM1-COM9, LPT1-LPT9, in any case, with or without an
//     extension) has its first character mapped, so Windows would not take it for the device;
//   - a byte that is not part of well-formed UTF-8 becomes U+F000+byte (0x80-0xFF);
//   - a character already in U+F000-U+F0FF has each of its three UTF-8 bytes mapped the same way, so that
//     it cannot be mistaken for a mapped one.
// The reverse turns every unit U+F0xx back into the byte xx and encodes the rest as UTF-8. The mapping is a
// bijection between host names and the Windows names it produces: a Windows name that is not the image of
// its own host name (it spells a mapped character plainly, or the reverse way, or would give '/' or NUL)
// is refused, so no two Windows names reach one entry by different spellings and no name can climb out of
// its folder: the host name "..\victim" lists as "..", U+F05C, "victim", one name inside its folder.
#pragma once

#include <string>

#include "../../wstr.h"

namespace vlx {

// The Windows name of a host name (one component, without '/').
WString WindowsNameOfHost(const std::string& hostName);

// The host name a Windows name stands for; false when no host name lists under that Windows name.
bool HostNameOfWindows(const WString& name, std::string& hostName);

// The device a Windows name stands for (CON, PRN, AUX, NUL, COM1-COM9, LPT1-LPT9, in any case, with or
// without an extension), as written without the extension, or empty when the name is no device's.
WString ReservedDeviceOf(const WString& name);

}  // namespace vlx
