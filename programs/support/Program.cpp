#include "Program.h"

#include "ServerSocket.h"

#include <algorithm>
#include <iostream>
#include <string_view>

namespace programs {

bool Program::answers(int argc, const char* const* argv) const
{
    const std::string_view only = argc == 2 ? argv[1] : "";
    if (only == "--help") {
        std::cout << usage;
    } else if (only == "--version") {
        std::cout << name << " " KESTRO_VERSION "\n";
    } else {
        return false;
    }
    return true;
}

void Program::tell(const std::string& message) const
{
    std::cerr << name << ": " << message << '\n';
}

int Program::fail(const std::string& message) const
{
    tell(message);
    return Failure;
}

int Program::misused(const std::string& message) const
{
    std::cerr << name << ": " << message << "\n\n" << usage;
    return WrongUsage;
}

int Program::failToConnect(const std::string& reason) const
{
    const auto places = socketPlaces();
    const SocketPlace& place = places[socketInUse(places)];
    return fail("no connection: " + onOneLine(reason) + '\n' + name + ": the socket tried is " +
                onOneLine(place.path) + ", " + place.origin +
                "; run kestro-doctor to see what is wrong");
}

std::string onOneLine(std::string text)
{
    std::ranges::replace_if(
        text, [](unsigned char c) { return c < ' ' || c == '\177'; }, ' ');
    return text;
}

} // namespace programs
