#pragma once
// What GoogleTest includes on every Apple system; nothing of it is used.
