// Sanitizer defaults for the fuzz targets, built into each of them.

// Some inputs ask for memory that cannot exist (a padding that makes stride x height
// terabytes): the library must then get a null buffer from the pool, as it would from the
// system, instead of AddressSanitizer stopping the process.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }
