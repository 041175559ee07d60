// The functions of the namespace VORNAUTILITY: directories, service objects, sparse documents.
#pragma once

#include "common/services/Directories.h"
#include "common/services/ServiceObjects.h"
#include "common/sparse/SparseXml.h"
