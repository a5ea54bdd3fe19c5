#pragma once

#include <string>

// Everything on the board and around it that has a name: what the page shows and what a request may name.  Any thread.
namespace qz::desk {

struct BoardEvent {
    int code;
    const char* name;
    const char* label; // for a person
    const char* group;
    const char* channel; // where the board reports it: sys or md
    bool ends;           // it ends the session, when it comes from there
};

// Null: no event has this code, or name.
const BoardEvent* FindEvent(int code);
const BoardEvent* FindEvent(const std::string& name);

bool IsFunction(const std::string& name); // of the encoder library
bool IsState(int code);

// The number of a signal that the daemon handles, and the name of any; 0, "signal N" for others.
int SignalNumber(const std::string& name);
std::string SignalName(int number);

// All of it as one JSON object.
std::string CatalogueJson();

} // namespace qz::desk
