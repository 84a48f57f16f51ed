UPDATE own_protected SET payload = payload;
