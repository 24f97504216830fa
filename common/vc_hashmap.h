// String-keyed map.
#pragma once
