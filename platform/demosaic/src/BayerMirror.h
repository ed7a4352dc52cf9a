// Mirrored borders of Bayer frames, shared by the demosaics of this library.
#pragma once

namespace bayer {

// Reflects an index into [0, n) about the first and the last element without repeating them
// (-1 -> 1, n -> n - 2). This keeps the parity of the index, hence the colour-filter phase.
// Indices further out are reflected again, as frames narrower than the context need. A single
// sample has no neighbour of the other phase, so it is replicated.
inline int mirror(int i, int n)
{
    if (n == 1)
        return 0;
    const int period = 2 * (n - 1);
    i %= period;
    if (i < 0)
        i += period;
    return i < n ? i : period - i;
}

}  // namespace bayer
