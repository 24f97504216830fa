// To come.
#pragma once
