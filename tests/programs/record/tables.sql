-- Tables that are awkward to write classes for, each with rows that show what is lost on the way.
-- AUTO_INCREMENT numbers have no gaps: a copy of the rows is numbered alike.

CREATE TABLE every_type (
    id VARCHAR(10) PRIMARY KEY,
    c_tinyint TINYINT, c_utinyint TINYINT UNSIGNED, c_bool BOOLEAN NOT NULL,
    c_smallint SMALLINT, c_usmallint SMALLINT UNSIGNED NOT NULL,
    c_mediumint MEDIUMINT, c_umediumint MEDIUMINT UNSIGNED NOT NULL,
    c_int INT NOT NULL, c_uint INT UNSIGNED NOT NULL, c_zerofill INT(9) ZEROFILL,
    c_nint INT, c_nuint INT UNSIGNED,
    c_bigint BIGINT NOT NULL, c_ubigint BIGINT UNSIGNED NOT NULL,
    c_nbigint BIGINT, c_nubigint BIGINT UNSIGNED,
    c_float FLOAT NOT NULL, c_nfloat FLOAT, c_float_digits FLOAT(7,3),
    c_double DOUBLE NOT NULL, c_ndouble DOUBLE, c_double_digits DOUBLE(20,5),
    c_decimal DECIMAL(65,30) NOT NULL, c_ndecimal DECIMAL(20,0),
    c_date DATE, c_time TIME(6), c_datetime DATETIME(6) NOT NULL, c_timestamp TIMESTAMP(3) NULL,
    c_year YEAR NOT NULL, c_nyear YEAR,
    c_char CHAR(5), c_varchar VARCHAR(200) NOT NULL, c_nvarchar VARCHAR(200),
    c_latin1 VARCHAR(20) CHARACTER SET latin1, c_utf16 VARCHAR(20) CHARACTER SET utf16,
    c_binary BINARY(4) NOT NULL, c_varbinary VARBINARY(300), c_charbytes CHAR(4) CHARACTER SET binary,
    c_tinytext TINYTEXT, c_text TEXT, c_mediumtext MEDIUMTEXT, c_longtext LONGTEXT NOT NULL,
    c_tinyblob TINYBLOB, c_blob BLOB, c_mediumblob MEDIUMBLOB, c_longblob LONGBLOB NOT NULL,
    c_enum ENUM('red', 'it''s', 'a"b', 'c\\d', 'größe, unsigned', '2'), c_set SET('a', 'b c', 'd''e'),
    c_json JSON, c_inet4 INET4, c_inet6 INET6, c_uuid UUID,
    c_geometry GEOMETRY, c_point POINT NOT NULL, c_line LINESTRING, c_polygon POLYGON,
    c_points MULTIPOINT, c_lines MULTILINESTRING, c_polygons MULTIPOLYGON, c_all GEOMETRYCOLLECTION
);
INSERT INTO every_type VALUES ('most',
    127, 255, 1, 32767, 65535, 8388607, 16777215, 2147483647, 4294967295, 42,
    2147483647, 4294967295,
    9223372036854775807, 18446744073709551615, 9223372036854775807, 18446744073709551615,
    3.4028234e38, 16777215, 1.234, 1.7976931348623157e308, 0.30000000000000004, 123456789012345.67891,
    12345678901234567890123456789012345.123456789012345678901234567891, 99999999999999999999,
    '9999-12-31', '838:59:59.999999', '9999-12-31 23:59:59.999999', '2038-01-17 03:14:07.999',
    2155, 1901,
    'äöü', 'a "quoted" \'text\' with \\ and \t\n\r%_', '\\N', 'größe', '漢字😀',
    '\0a\0b', CONCAT('a\0b', x'ff00fe27225c0a'), '\0\0\0z',
    'tiny', 'text', 'medium', REPEAT('long ', 20000),
    x'00', x'0001020304', x'6100', REPEAT(x'00ff', 100000),
    'größe, unsigned', 'a,d\'e',
    '{"a": [1, null, "\\""]}', '192.168.0.1', '2001:db8::ff00:42:8329',
    '123e4567-e89b-12d3-a456-426655440000',
    ST_GeomFromText('POINT(1 2)', 4326), POINT(0.1, -2e100), ST_GeomFromText('LINESTRING(0 0, 1 1)'),
    ST_GeomFromText('POLYGON((0 0, 1 0, 1 1, 0 0))'), ST_GeomFromText('MULTIPOINT(1 1, 2 2)'),
    ST_GeomFromText('MULTILINESTRING((0 0, 1 1), (2 2, 3 3))'),
    ST_GeomFromText('MULTIPOLYGON(((0 0, 1 0, 1 1, 0 0)))'),
    ST_GeomFromText('GEOMETRYCOLLECTION(POINT(1 1), LINESTRING(0 0, 1 1))')
), ('least',
    -128, 0, 0, -32768, 0, -8388608, 0, -2147483648, 0, 0, -2147483648, 0,
    -9223372036854775808, 0, -9223372036854775808, 0,
    -1.17549435e-38, 1.2345678, -1.234, -2.2250738585072014e-308, 5e-324, -0.00001,
    -0.000000000000000000000000000001, 0,
    '0000-00-00', '-838:59:59.000001', '0000-00-00 00:00:00', '1970-01-03 00:00:00.001',
    1901, 1901, '', '', '', '', '', '', '', '', '', '', '', '', '', '', '', '', '2', '', '0', '0.0.0.0', '::',
    '00000000-0000-0000-0000-000000000000',
    POINT(0, 0), POINT(0, 0), ST_GeomFromText('LINESTRING(0 0, 0 1)'),
    ST_GeomFromText('POLYGON((0 0, 1 0, 1 1, 0 0))'), ST_GeomFromText('MULTIPOINT(0 0)'),
    ST_GeomFromText('MULTILINESTRING((0 0, 1 1))'),
    ST_GeomFromText('MULTIPOLYGON(((0 0, 1 0, 1 1, 0 0)))'),
    ST_GeomFromText('GEOMETRYCOLLECTION(POINT(1 1))'));
-- All that may be NULL is.
INSERT INTO every_type (id, c_bool, c_usmallint, c_umediumint, c_int, c_uint, c_bigint, c_ubigint,
    c_float, c_double, c_decimal, c_datetime, c_year, c_varchar, c_binary, c_longtext,
    c_longblob, c_point)
VALUES ('null', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, '2000-01-01', 2000, '', '', '', '', POINT(1, 1));

CREATE TABLE bits (id INT PRIMARY KEY, a BIT NOT NULL, b BIT(64) NOT NULL, c BIT(12), d BIT(8), year YEAR);
INSERT INTO bits VALUES (1, 1, 18446744073709551615, b'101000000001', NULL, 2000), (2, 0, 0, NULL, b'00110101', 0);

CREATE TABLE nullable (a INT, b BIGINT UNSIGNED, c DOUBLE, d VARCHAR(20), e DATE, f DECIMAL(5, 2));
INSERT INTO nullable VALUES (0, 0, 0, '', '2000-02-29', 0), (NULL, NULL, NULL, NULL, NULL, NULL),
    (1, NULL, 1e-5, '\\N', NULL, 1.10), (NULL, 18446744073709551615, NULL, 'NULL', NULL, NULL);

-- Names: what C++ does not take, what it takes for something else, and what the class has already.
CREATE TABLE `it's a "table" with ``backquotes``, \\ and ??/` (
    `a name` INT PRIMARY KEY, `a-name` INT, `a_name` INT, `a__name_` INT, `a"b` INT, `a``b` INT,
    `c'd` INT, `e\f` INT, `g\\` INT, `what??/` INT, `why???/?` INT, `*/ //` INT, `tab	new
line` INT, `100%` INT, `2nd` INT, `!` INT, `?` INT, `_` INT, `_Id` INT, `%s` INT, `größe` INT,
    `ÄÖ` INT, `漢字` INT, `имя` INT, `ひらがな` INT, `한글` INT, `★` INT, `e★` INT, `a‮b` INT, `a b` INT,
    `cafe` INT, `café` INT, `x.y` INT, `x, y` INT, `\012` INT
);
INSERT INTO `it's a "table" with ``backquotes``, \\ and ??/` (`a name`, `what??/`, `\012`)
VALUES (1, 2, 3), (2, NULL, 4);
CREATE TABLE `class` (
    `class` VARCHAR(10), `int` INT, `and` DOUBLE, `xor_eq` BIT, `select` INT, `from` INT,
    `key` INT, `null` INT, `default` INT, `operator` INT, `this` INT, `co_await` INT, `new` INT,
    `current_date` INT, `template` BLOB, `co_yield` INT, `string` INT, `optional` INT,
    PRIMARY KEY (`key`, `class`)
);
INSERT INTO `class` (`class`, `key`, `int`, `template`) VALUES ('a', 1, 3, x'610062'), ('b', 1, 4, NULL);
CREATE TABLE database_ (
    `database` INT PRIMARY KEY, handle INT, text INT, value INT, std INT, Kestro INT, optional DOUBLE,
    Fetched BIT, exact BLOB NOT NULL, DatabaseRecord INT, Database_ INT, KYDBTableSimple INT, KYVarRef INT, KYDB_FLAG_KEY INT, m_dbmap INT, dbmap_init INT, dbmap_size INT,
    table_name INT, DBDatabase INT, `get` INT, save INT, remove INT, parse INT, assign INT, dump INT,
    execute INT, get_error_number INT, sql_keys INT, errno INT, stdin INT, NULL_ INT, `EOF` INT,
    INT_MAX INT, `linux` INT, `unix` INT, `assert` INT, size_t INT, push_back INT, empty INT, db_client INT
);
INSERT INTO database_ (`database`, handle, Fetched, exact) VALUES (1, 2, 1, 'a\0b'), (2, 3, NULL, '');
CREATE TABLE `number` (`number` DOUBLE PRIMARY KEY, nullable INT);
INSERT INTO `number` VALUES (0.1, 1), (1e300, NULL), (12345678901234567890, 0);
CREATE TABLE `2 größe 漢字` (`größe` VARCHAR(5) NOT NULL, `漢字` INT NOT NULL, UNIQUE (`größe`, `漢字`));
INSERT INTO `2 größe 漢字` VALUES ('é', 1), ('é', 2), ('', 1);
CREATE TABLE t (`T` INT, b BIT(9));
INSERT INTO t VALUES (1, 257), (NULL, NULL);
CREATE TABLE `!` (a INT);
INSERT INTO `!` VALUES (1);

-- Keys.
CREATE TABLE numbered (id INT UNSIGNED AUTO_INCREMENT PRIMARY KEY, text VARCHAR(10) NOT NULL);
INSERT INTO numbered (text) VALUES ('a'), ('b'), ('a');
CREATE TABLE decimal_key (id DECIMAL(30, 5) PRIMARY KEY, text INT);
INSERT INTO decimal_key VALUES (1000000000000000000000000.00001, 1), (1000000000000000000000000.00002, 2);
CREATE TABLE float_key (id FLOAT, bits BIT(64), bytes VARBINARY(10), text INT, PRIMARY KEY (id, bits, bytes));
INSERT INTO float_key VALUES (1.1, 18446744073709551615, 'a\0b', 1), (1.1, 18446744073709551614, 'a\0b', 2),
    (1.1000001, 1, 'a\0c', 3), (1.1000001, 1, 'a', 3), (1.1000001, 1, x'ff', 3);
CREATE TABLE date_key (id DATETIME(6), kind ENUM('a', 'b c'), address INET6, text INT, PRIMARY KEY (id, kind, address));
INSERT INTO date_key VALUES ('2000-01-01 00:00:00.000001', 'a', '::1', 1), ('2000-01-01 00:00:00.000002', 'b c', '::1', 2);
CREATE TABLE no_key (a INT, b INT UNIQUE, KEY (a));
INSERT INTO no_key VALUES (1, 1), (1, NULL), (NULL, NULL);

-- Columns that the server computes.
CREATE TABLE computed (
    id INT PRIMARY KEY, a INT, twice INT AS (2 * a) VIRTUAL, text VARCHAR(20) AS (CONCAT('#', a)) STORED,
    f FLOAT AS (a / 3) STORED, b BIT(4) AS (a) VIRTUAL, hidden INT INVISIBLE, d INT DEFAULT 5,
    t TIMESTAMP NOT NULL DEFAULT '2000-01-01 00:00:00' ON UPDATE CURRENT_TIMESTAMP
);
INSERT INTO computed (id, a, hidden, d, t) VALUES (1, 1, 1, NULL, '2001-01-01'), (2, NULL, NULL, 7, '2002-01-01');

-- One of the server's own, beside those that round_trip copies.
CREATE TABLE columns AS SELECT * FROM information_schema.COLUMNS LIMIT 200;
