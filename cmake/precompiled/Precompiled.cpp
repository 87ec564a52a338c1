// Gives the shared precompiled header a target to belong to.
