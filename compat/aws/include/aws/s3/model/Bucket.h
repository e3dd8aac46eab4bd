#pragma once
#include "aws/s3/Models.h"
