#pragma once

/// Defines MIREL_ADDRESS_SANITIZER where code is built for it, by whichever compiler.
#if defined(__SANITIZE_ADDRESS__)
#define MIREL_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MIREL_ADDRESS_SANITIZER 1
#endif
#endif
