// SPDX-License-Identifier: MIT
// Nothing but the precompiled header that the tests share.
