#include "cards/ImageBuffer.h"

uint8_t imageBuffer[ImageBufferSize];
