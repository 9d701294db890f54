// Memory for zlib's compressor that is kept between page builds.
//
// A page is compressed every time it changes, up to once a second per page. The
// compressor's state is about a quarter of a megabyte in a few large blocks; handing
// them back to the system after each page and faulting them in again costs more than
// compressing a small page. The blocks freed by one build serve the next on the same
// thread.
#pragma once

#include <zlib.h>

namespace deflate_memory {

// zalloc and zfree for a z_stream; `opaque` is ignored.
voidpf Allocate(voidpf opaque, uInt items, uInt size);
void Free(voidpf opaque, voidpf address);

}  // namespace deflate_memory
