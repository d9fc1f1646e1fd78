// The translation unit that builds the test programs' shared precompiled header.
