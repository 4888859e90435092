-- Tables that are awkward to write classes for, each with rows that show what is lost on the way.
-- AUTO_INCREMENT numbers have no gaps: a copy of the rows is numbered alike.

CREATE TABLE every_type (
    id VARCHAR(10) PRIMARY KEY, c_tiny TINYINT, c_utiny TINYINT UNSIGNED, c_bool BOOLEAN NOT NULL, c_small SMALLINT,
    c_medium MEDIUMINT UNSIGNED NOT NULL, c_int INT NOT NULL, c_uint INT UNSIGNED, c_fill INT(9) ZEROFILL NOT NULL,
    c_big BIGINT NOT NULL, c_ubig BIGINT UNSIGNED, c_float FLOAT NOT NULL, c_digits FLOAT(7,3), c_double DOUBLE,
    c_decimal DECIMAL(65,30) NOT NULL, c_date DATE, c_time TIME(6), c_datetime DATETIME(6) NOT NULL,
    c_timestamp TIMESTAMP(3) NULL, c_year YEAR NOT NULL, c_char CHAR(5), c_varchar VARCHAR(200) NOT NULL,
    c_utf16 VARCHAR(20) CHARACTER SET utf16, c_binary BINARY(4) NOT NULL, c_bytes VARBINARY(300),
    c_text LONGTEXT NOT NULL, c_blob LONGBLOB, c_point POINT NOT NULL, c_json JSON,
    c_bit BIT NOT NULL, c_nbit BIT, c_bits BIT(64), c_enum ENUM('red', 'a"b', 'c\\d', 'größe, unsigned', '2'), c_set SET('a', 'b c', 'd''e'));
INSERT INTO every_type VALUES
('most', 127, 255, 1, 32767, 16777215, 2147483647, 4294967295, 4294967295, 9223372036854775807, 18446744073709551615,
    3.4028234e38, 1.234, 0.30000000000000004, 12345678901234567890123456789012345.123456789012345678901234567891,
    '9999-12-31', '838:59:59.999999', '9999-12-31 23:59:59.999999', '2038-01-17 03:14:07.999', 2155,
    'äöü', 'a "quoted" \'text\' with \\ and \0\t\n\r%_', '漢字😀', '\0a\0b', CONCAT('a\0b', x'ff00fe27225c0a'),
    REPEAT('long ', 20000), REPEAT(x'00ff', 100000), POINT(0.1, -2e100), '{"a": [1, null, "\\""]}',
    1, 0, 18446744073709551615, 'größe, unsigned', 'a,d\'e'),
('least', -128, 0, 2, -32768, 0, -2147483648, 0, 42, -9223372036854775808, 0, 1.2345678, -1.234, 5e-324,
    -0.000000000000000000000000000001, '0000-00-00', '-838:59:59.000001', '0000-00-00 00:00:00',
    '1970-01-03 00:00:00.001', 1901, '', '\\N', '', '', '', '', '', POINT(0, 0), '0', 0, 1, b'101000000001', '2', ''),
('null', NULL, NULL, 0, NULL, 0, 0, NULL, 0, 0, NULL, -1.17549435e-38, NULL, NULL, 0, NULL, NULL, '2000-01-01', NULL,
    2000, NULL, '', NULL, '', NULL, '', NULL, POINT(1, 1), NULL, 0, NULL, NULL, NULL, NULL);

-- Names: what C++ does not take, what it takes for something else, and what the class has already.
CREATE TABLE `it's a "table" with ``backquotes``, \\ and ??/` (
    `a name` INT PRIMARY KEY, `a-name` INT, `a_name` INT, `a__name_` INT, `a"b` INT, `a``b` INT, `e\f` INT,
    `g\\` INT, `what??/` INT, `*/ //` INT, `tab	new
line` INT, `2nd` INT, `!` INT, `_Id` INT, `größe` INT, `ÄÖ` INT, `漢字` INT, `имя` INT, `한글` INT, `★` INT,
    `a‮b` INT, `café` INT, `x, y` INT, `\012` INT);
INSERT INTO `it's a "table" with ``backquotes``, \\ and ??/` (`a name`, `what??/`, `\012`) VALUES (1, 2, 3);
CREATE TABLE `class` (
    `class` VARCHAR(10), `int` INT, `xor_eq` INT, `co_await` INT, `database` INT, handle INT, std INT, Kestro INT,
    Fetched INT AS (1), string INT, optional INT, KYVarRef INT, m_dbmap INT, table_name INT, `get` INT, save INT,
    parse INT, errno INT, stdin INT, `EOF` INT, `linux` INT, `assert` INT, `key` BLOB, PRIMARY KEY (`class`, `key`(9)));
INSERT INTO `class` (`class`, `key`, `int`, `EOF`) VALUES ('é', x'610062', 3, 4), ('é', x'610063', 4, NULL);
CREATE TABLE `!` (a INT, b INT UNIQUE);
INSERT INTO `!` VALUES (1, 1), (NULL, NULL);

-- Keys, and columns that the server computes.
CREATE TABLE `number` (`Number` DOUBLE, id DECIMAL(30, 5), since DATETIME(6), text INT, PRIMARY KEY (`Number`, id, since));
INSERT INTO `number` VALUES (0.1, 1000000000000000000000000.00001, '2000-01-01 00:00:00.000001', 1),
    (0.1, 1000000000000000000000000.00002, 0, NULL), (12345678901234567890, 0, 0, 0);
CREATE TABLE `2 größe 漢字` (`größe` FLOAT NOT NULL, `漢字` BIT(64) NOT NULL, bytes VARBINARY(10) NOT NULL, text INT,
    UNIQUE (`größe`, `漢字`, bytes));
INSERT INTO `2 größe 漢字` VALUES (1.1, 18446744073709551615, 'a\0b', 1), (1.1, 18446744073709551614, 'a\0b', 2),
    (1.1000001, 1, 'a\0c', 3), (1.1000001, 1, 'a', 3), (1.1000001, 1, x'ff', 3);
CREATE TABLE computed (id INT UNSIGNED AUTO_INCREMENT PRIMARY KEY, a INT, twice INT AS (2 * a) VIRTUAL,
    text VARCHAR(20) AS (CONCAT('#', a)) STORED, f FLOAT AS (a / 3) STORED, hidden INT INVISIBLE, d INT DEFAULT 5,
    t TIMESTAMP NOT NULL DEFAULT '2000-01-01 00:00:00' ON UPDATE CURRENT_TIMESTAMP);
INSERT INTO computed (a, hidden, d, t) VALUES (1, 1, NULL, '2001-01-01'), (NULL, NULL, 7, '2002-01-01');
