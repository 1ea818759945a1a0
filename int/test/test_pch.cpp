// Nothing but a place for the precompiled header that the tests share.
