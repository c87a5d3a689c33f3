// Exists to give the precompiled header an object to be compiled with.
