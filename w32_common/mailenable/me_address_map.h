// Where Mail Enable delivers an address.
#pragma once
