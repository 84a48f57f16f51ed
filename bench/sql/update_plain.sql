UPDATE own_plain SET payload = payload;
