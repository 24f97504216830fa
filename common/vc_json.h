// JSON documents.
#pragma once
