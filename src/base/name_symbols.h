// What a name may hold beside letters and digits: the one list of it, which the inspection and the tool read as well. A
// literal, so that sentences about names can be put together around it. Stands on nothing.
#pragma once

#define ORBA_NAME_SYMBOLS "!#$%&'()-^~@{}[]_."
