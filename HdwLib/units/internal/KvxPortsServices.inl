// Included once, by KvxCommandDevice.cpp, before the explicit instantiations.
