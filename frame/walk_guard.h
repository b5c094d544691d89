// The guard every folder walk shares: the folders the calling thread's walk is inside, so that a folder
// link leading back into one of them is not entered, and every walk ends.
#pragma once

#include "frame_internal.h"

// One level of a walk, from entering its folder until leaving it. Levels nest on the calling thread: the
// outermost one starts a walk and the walk ends with it. A walk started from inside another on the same
// thread (a caller's window procedure walking while it is sent a report row) shares the outer one's
// folders, which at most cuts a link the inner walk alone would have entered once.
class WalkLevel {
public:
    explicit WalkLevel(const CString& folder);
    ~WalkLevel();
    WalkLevel(const WalkLevel&) = delete;
    WalkLevel& operator=(const WalkLevel&) = delete;
};

// Whether the folder link at path leads to a folder that a level of the calling thread's walk is in:
// walking it would bring the walk back to where it is, without end. Links to folders elsewhere are walked
// like any folder. A link that cannot be looked at is not walked either.
bool LeadsBackIntoWalk(const CString& link);
