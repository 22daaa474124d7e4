// The translation unit that carries the test programs' precompiled headers.
