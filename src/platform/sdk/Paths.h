#pragma once

#include "platform/sdk/CMPath.h"

// The path accessors: CMPath VornPlayerVolumePath() and its like, one for each well-known node.
#define NODE(accessor, path)                                                                                 \
    inline CMPath accessor()                                                                                 \
    {                                                                                                        \
        return CMPath(Node::accessor);                                                                       \
    }
#include "vocabulary/Paths.inc"
#undef NODE
