<?xml version="1.0" encoding="UTF-8"?>
<!-- One line for each opening of a door: which door, when, and whose badge. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
    <xsl:output omit-xml-declaration="yes"/>
    <xsl:template match="/">
        <Openings>
            <xsl:for-each select="Payload/Door/Opening">
                <Opened Door="{../@Name}" At="{Time}" Badge="{Badge}"/>
            </xsl:for-each>
        </Openings>
    </xsl:template>
</xsl:stylesheet>
