// SPDX-License-Identifier: MIT
// Nothing but the headers that every test program shares; see CMakeLists.txt.
