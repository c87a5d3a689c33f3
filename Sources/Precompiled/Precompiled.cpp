// Compiles the precompiled header, which requires a source file.
