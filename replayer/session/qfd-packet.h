// Request and response packets.
#pragma once
