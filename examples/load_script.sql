-- Makes a table whose trigger keeps a log of it.
CREATE OR REPLACE DATABASE load_script;
USE load_script;
CREATE TABLE article (id INT PRIMARY KEY, name VARCHAR(40));
CREATE TABLE article_log (id INT, at TIMESTAMP);

DELIMITER //
CREATE TRIGGER article_added AFTER INSERT ON article FOR EACH ROW
BEGIN
    INSERT INTO article_log VALUES (NEW.id, NOW());
END //
DELIMITER ;

INSERT INTO article VALUES (1, 'first; and "best"'), (2, 'second');
INSERT INTO article VALUES (1, 'again'); -- a duplicate, which is refused
DROP DATABASE load_script;
