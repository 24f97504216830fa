// The Windows registry.
#pragma once
